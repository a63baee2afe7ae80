#pragma once

#include "Simulation/Peers/Wire.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/udp.hpp>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

namespace peers {

/// Hears the module's heartbeats on a datagram socket, which also sends. One thread.
class HeartbeatEar
{
public:
    explicit HeartbeatEar(boost::asio::io_service& service) : mSocket(service) {}

    /// Counts from nothing again.
    /// @param onHeard called after each heartbeat.
    void Open(const boost::asio::ip::udp::endpoint& local, std::function<void()> onHeard);
    void Close();
    bool IsOpen() const { return mSocket.is_open(); }
    /// What cannot be sent is lost.
    void SendTo(const boost::asio::ip::udp::endpoint& module, const Bytes& bytes);

    std::uint32_t GetCount() const { return mCount; }
    /// The count and the last heartbeat in hex.
    std::string GetText() const;

private:
    void Hear();

    boost::asio::ip::udp::socket mSocket;
    boost::asio::ip::udp::endpoint mSender;
    std::array<std::uint8_t, 64> mBuffer{};
    std::function<void()> mOnHeard;
    Bytes mLast;
    std::uint32_t mCount = 0;
};

} // namespace peers
