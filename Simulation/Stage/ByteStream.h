#pragma once

#include "Simulation/Stage/FileDescriptor.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace stage {

/// One end of a connected stream socket, for one thread. What arrives is kept until a wait takes it.
class ByteStream
{
public:
    /// Connects from a network namespace (empty for the module's own) to a dotted address.
    /// @throws std::system_error if the connection is refused.
    static ByteStream ConnectTcp(const std::string& networkNamespace, const std::string& address, std::uint16_t port);
    static ByteStream ConnectUnix(const std::string& path);

    explicit ByteStream(FileDescriptor socket) : mSocket(std::move(socket)) {}

    /// Hands over all bytes, in one call of the kernel as long as it takes them.
    void Send(const std::string& bytes);

    /// Waits for the text and takes everything up to its end, which is the result.
    std::string TakeThrough(const std::string& text, Milliseconds patience = Patience);
    /// Waits for so many bytes and takes them.
    std::string TakeBytes(std::size_t count, Milliseconds patience = Patience);
    /// Waits until the other side closes; the result is what came before and was not taken yet.
    std::string TakeUntilClosed(Milliseconds patience = Patience);

    int Descriptor() const { return mSocket.Get(); }
    /// What has arrived and was not taken yet, without waiting.
    const std::string& Pending() const { return mPending; }
    void Close() { mSocket.Close(); }

private:
    /// Reads once; false at the end of the stream.
    bool Receive();
    [[noreturn]] void Missing(const std::string& what, bool closed) const;

    FileDescriptor mSocket;
    std::string mPending;
};

} // namespace stage
