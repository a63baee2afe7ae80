#include "Simulation/Peers/HeartbeatEar.h"

#include <boost/asio/buffer.hpp>

#include <utility>

namespace peers {

using boost::asio::ip::udp;
using boost::system::error_code;

void HeartbeatEar::Open(const udp::endpoint& local, std::function<void()> onHeard)
{
    mSocket.open(udp::v4());
    mSocket.set_option(udp::socket::reuse_address(true));
    mSocket.bind(local);
    mOnHeard = std::move(onHeard);
    mCount = 0;
    Hear();
}

void HeartbeatEar::Close()
{
    error_code ignored;
    mSocket.close(ignored);
}

void HeartbeatEar::SendTo(const udp::endpoint& module, const Bytes& bytes)
{
    error_code ignored;
    mSocket.send_to(boost::asio::buffer(bytes), module, 0, ignored);
}

std::string HeartbeatEar::GetText() const
{
    return std::to_string(mCount) + " " + ToHex(mLast);
}

void HeartbeatEar::Hear()
{
    mSocket.async_receive_from(
        boost::asio::buffer(mBuffer), mSender, [this](const error_code& error, std::size_t size) {
            if (error == boost::asio::error::operation_aborted || !mSocket.is_open()) return;
            if (!error) {
                mLast.assign(mBuffer.begin(), mBuffer.begin() + static_cast<std::ptrdiff_t>(size));
                ++mCount;
                mOnHeard();
            }
            Hear();
        });
}

} // namespace peers
