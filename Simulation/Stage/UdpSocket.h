#pragma once

#include "Simulation/Stage/FileDescriptor.h"

#include <cstdint>
#include <string>

namespace stage {

/// One datagram and where it came from.
struct Datagram
{
    std::string bytes;
    std::string address;
    std::uint16_t port = 0;
};

/// A UDP socket in a network namespace, for one thread.
class UdpSocket
{
public:
    /// @param networkNamespace empty for the module's own
    /// @param address dotted; @param port 0 for any
    UdpSocket(const std::string& networkNamespace, const std::string& address, std::uint16_t port);

    void SendTo(const std::string& address, std::uint16_t port, const std::string& bytes);
    /// Waits for the next datagram.
    Datagram Receive(Milliseconds patience = Patience);

private:
    FileDescriptor mSocket;
    std::string mName;
};

} // namespace stage
