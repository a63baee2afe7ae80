#pragma once

#include "Utilities/CommandLine/ClientConnection.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/signals2/signal.hpp>
#include <boost/system/error_code.hpp>

#include <memory>
#include <string>

namespace cmd {

/// Accepts the clients of the shell and reports their lines. Runs on the main service; the signals fire there, each
/// from its own handler (ConnectionOpened from the accept).
class RemoteCommandServer
{
public:
    /// Listens at once. Throws std::runtime_error with a text that names the endpoint and what can be done.
    /// @param name of the program, for the greeting.
    RemoteCommandServer(boost::asio::io_service& service, const boost::asio::ip::tcp::endpoint& endpoint,
                        const std::string& name);
    RemoteCommandServer(const RemoteCommandServer&) = delete;
    RemoteCommandServer& operator=(const RemoteCommandServer&) = delete;

    void StartAccept();

    /// Where it really listens, also if it was built with port 0.
    boost::asio::ip::tcp::endpoint GetEndpoint() const { return mAcceptor.local_endpoint(); }

    boost::signals2::signal<void(const std::shared_ptr<ClientConnection>&, const std::string& line)> LineReceived;
    boost::signals2::signal<void(const std::shared_ptr<ClientConnection>&)> ConnectionOpened;
    boost::signals2::signal<void(const std::shared_ptr<ClientConnection>&, const boost::system::error_code&)>
        ConnectionClosed;

private:
    void OnAccept(const boost::system::error_code& error);
    void OnFailedAccept(const boost::system::error_code& error);
    /// What each connection calls; safe after the server is destroyed.
    ClientConnection::Receiver MakeReceiver();

    boost::asio::ip::tcp::acceptor mAcceptor;
    boost::asio::ip::tcp::socket mSocket;
    const std::string mName;
    const char mDelimiter = '\n';
    boost::asio::io_service& mService;
    boost::asio::steady_timer mRetryTimer;
    bool mAcceptFailed = false;
    /// Connections and handlers may outlive the server: they hold this weakly.
    const std::shared_ptr<RemoteCommandServer*> mSelf;
};

} // namespace cmd
