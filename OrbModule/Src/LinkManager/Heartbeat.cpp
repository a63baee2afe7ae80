#include "OrbModule/Inc/LinkManager/Heartbeat.h"

#include "Audit/Audit.h"
#include "MiscSource/LittleEndian.h"
#include "MiscSource/NetworkPorts.h"

#include <array>
#include <sstream>
#include <stdexcept>

namespace {

using boost::asio::ip::udp;

udp::socket BindSocket(boost::asio::io_service& service, const udp::endpoint& local)
{
    udp::socket socket(service, local.protocol());
    boost::system::error_code error;
    socket.bind(local, error);
    if (error) {
        std::ostringstream text;
        text << "The module heartbeat cannot bind UDP " << local << " (" << error.message()
             << "): give eth0 the address " << local.address() << ", and end any other program that uses this port";
        throw std::runtime_error(text.str());
    }
    return socket;
}

} // namespace

Heartbeat::Endpoint Heartbeat::UnitEndpoint(Hid node)
{
    return {boost::asio::ip::address_v4(node), NetworkPorts::MODULE_HEARTBEAT};
}

Heartbeat::Heartbeat(const Endpoint& local, const Endpoint& destination, std::chrono::milliseconds period)
    : mSocket(BindSocket(mService, local)), mTimer(mService), mDestination(destination), mPeriod(period)
{
    StartTimer();
    mThread = std::thread([this] { mService.run(); });
}

Heartbeat::~Heartbeat()
{
    mService.stop();
    mThread.join();
}

void Heartbeat::StartTimer()
{
    mTimer.expires_from_now(mPeriod);
    mTimer.async_wait([this](const boost::system::error_code& error) { OnTimer(error); });
}

void Heartbeat::OnTimer(const boost::system::error_code& error)
{
    if (error == boost::asio::error::operation_aborted) return;
    if (error) {
        AUDIT_STREAM(Fault, "Sending HB timer error: " << error.message() << "\n");
        return;
    }
    if (Send()) {
        StartTimer();
    } else {
        AUDIT_LOG(Fault, "Heartbeat::Send FAILED\r\n");
    }
}

bool Heartbeat::Send()
{
    std::array<std::uint8_t, MESSAGE_SIZE> message = {MESSAGE_TYPE};
    StoreLittleEndian(mMasterHid.load(), &message[1]);
    boost::system::error_code error;
    return mSocket.send_to(boost::asio::buffer(message), mDestination, 0, error) == message.size();
}
