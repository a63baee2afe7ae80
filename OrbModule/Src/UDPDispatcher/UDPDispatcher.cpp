#include "OrbModule/Inc/UDPDispatcher/UDPDispatcher.h"

#include <boost/asio/buffer.hpp>
#include <chrono>
#include <exception>
#include <stdexcept>

namespace {

using boost::asio::ip::udp;

/// An error that stays must not keep the main thread busy.
constexpr std::chrono::milliseconds RetryDelay{100};

udp::socket BindSocket(boost::asio::io_service& service, std::uint16_t port)
{
    udp::socket socket(service, udp::v4());
    boost::system::error_code error;
    socket.bind(udp::endpoint(udp::v4(), port), error);
    if (error) {
        throw std::runtime_error("The switch fabric dispatcher cannot bind UDP port " + std::to_string(port) + " (" +
                                 error.message() + "): end the other program that uses this port");
    }
    return socket;
}

} // namespace

UDPDispatcher::UDPDispatcher(boost::asio::io_service& service, std::uint16_t port)
    : mIoService(service), mSocket(BindSocket(service, port)), mRetryTimer(mIoService)
{
    StartReceive();
}

void UDPDispatcher::StartReceive()
{
    mSocket.async_receive_from(boost::asio::buffer(mBuffer), mSender,
                               [this](const boost::system::error_code& error, std::size_t bytes) {
                                   if (error != boost::asio::error::operation_aborted) ReceivePacket(error, bytes);
                               });
}

void UDPDispatcher::ReceivePacket(const boost::system::error_code& error, std::size_t bytes)
{
    if (!error) {
        try {
            Dispatch(mBuffer.data(), bytes);
            mFault.clear();
        } catch (const std::exception& failure) {
            ReportFault(failure.what());
        } catch (...) {
            ReportFault("unknown exception");
        }
        StartReceive();
        return;
    }
    ReportFault(error.message());
    if (!mSocket.is_open() || error == boost::asio::error::bad_descriptor) return;
    mRetryTimer.expires_from_now(RetryDelay);
    mRetryTimer.async_wait([this](const boost::system::error_code& aborted) {
        if (!aborted) StartReceive();
    });
}

/// One line for a fault that lasts.
void UDPDispatcher::ReportFault(const std::string& text)
{
    if (text == mFault) return;
    mFault = text;
    AUDIT_STREAM(Fault, "UDPDispatcher::ReceivePacket Error " << text << "\n");
}

void UDPDispatcher::Dispatch(const char* bytes, std::size_t size) const
{
    if (size == 0) return;
    const auto found = mHandlers.find(static_cast<unsigned char>(bytes[0]));
    if (found == mHandlers.end() || size < found->second.size) return;
    // A copy: a slot may register.
    const Decoder decoder = found->second.decoder;
    decoder(bytes);
}
