#include "Utilities/CommandLine/RemoteCommandServer.h"

#include "Audit/Audit.h"

#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>

#include <chrono>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace cmd {

namespace {

using boost::asio::ip::tcp;

/// After a failed accept. With no descriptor left each further attempt would fail at once.
constexpr std::chrono::milliseconds RetryDelay{100};

tcp::acceptor Listen(boost::asio::io_service& service, const tcp::endpoint& endpoint)
{
    try {
        tcp::acceptor acceptor(service, endpoint.protocol());
        acceptor.set_option(tcp::acceptor::reuse_address(true));
        acceptor.bind(endpoint);
        acceptor.listen();
        return acceptor;
    } catch (const boost::system::system_error& error) {
        std::ostringstream text;
        text << "cannot listen for shell clients on " << endpoint << ": " << error.code().message()
             << ": choose another endpoint with --telnet";
        throw std::runtime_error(text.str());
    }
}

} // namespace

RemoteCommandServer::RemoteCommandServer(boost::asio::io_service& service, const tcp::endpoint& endpoint,
                                         const std::string& name)
    : mAcceptor(Listen(service, endpoint)),
      mSocket(service),
      mName(name),
      mService(service),
      mRetryTimer(service),
      mSelf(std::make_shared<RemoteCommandServer*>(this))
{
    StartAccept();
}

void RemoteCommandServer::StartAccept()
{
    mAcceptor.async_accept(mSocket,
                           [weak = std::weak_ptr<RemoteCommandServer*>(mSelf)](const boost::system::error_code& error) {
                               if (const auto self = weak.lock()) (*self)->OnAccept(error);
                           });
}

void RemoteCommandServer::OnAccept(const boost::system::error_code& error)
{
    if (error) {
        OnFailedAccept(error);
        return;
    }
    mAcceptFailed = false;
    tcp::socket socket = std::move(mSocket);
    // First, so that a fault with this client does not keep the next one out.
    StartAccept();
    const auto connection = std::make_shared<ClientConnection>(std::move(socket), mDelimiter, MakeReceiver());
    ConnectionOpened(connection);
    connection->Start(mName);
}

void RemoteCommandServer::OnFailedAccept(const boost::system::error_code& error)
{
    if (error == boost::asio::error::operation_aborted) return;
    if (!mAcceptFailed) {
        AUDIT_LOG(Fault, "CommandLine: accept failed, %s\r\n", error.message().c_str());
    }
    mAcceptFailed = true;
    mRetryTimer.expires_after(RetryDelay);
    mRetryTimer.async_wait(
        [weak = std::weak_ptr<RemoteCommandServer*>(mSelf)](const boost::system::error_code& failed) {
            if (failed) return;
            if (const auto self = weak.lock()) (*self)->StartAccept();
        });
}

ClientConnection::Receiver RemoteCommandServer::MakeReceiver()
{
    return [weak = std::weak_ptr<RemoteCommandServer*>(mSelf),
            &service = mService](const std::shared_ptr<ClientConnection>& connection,
                                 const boost::system::error_code& error, const std::string& line) {
        service.post([weak, connection, error, line] {
            const auto self = weak.lock();
            if (!self) return;
            if (error) {
                (*self)->ConnectionClosed(connection, error);
            } else {
                (*self)->LineReceived(connection, line);
            }
        });
    };
}

} // namespace cmd
