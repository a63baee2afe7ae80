#pragma once

#include "Utilities/CommandLine/NodeManager.h"
#include "Utilities/CommandLine/RemoteCommandServer.h"

#include <boost/any.hpp>
#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>

namespace cmd {

/// The shell for service engineers: a tree of typed commands on a TCP port. Commands run on the main service, so they
/// may use its objects without a lock, and one that blocks stops the main service for that time.
class CommandLine
{
public:
    using ReceivedCallback = std::function<void(const std::string& line)>;
    using SentCallback = std::function<void(const std::string& name, const std::string& result)>;

    /// Listens at once. Throws std::runtime_error with a text that names the endpoint and what can be done.
    /// @param name of the program, for the greeting.
    CommandLine(boost::asio::io_service& service, const boost::asio::ip::tcp::endpoint& endpoint,
                const std::string& name);
    ~CommandLine();

    /// Adds a command at the top; see action::MakeAction for what the function may be.
    template <class Callable>
    void AddAction(const std::string& id, Callable&& function, const std::string& help)
    {
        Node::ValidateActionName(id);
        mNodes->GetRoot().AddAction(action::MakeAction(id, std::forward<Callable>(function), help));
    }
    void AddNode(const std::shared_ptr<Node>& node) { mNodes->GetRoot().AddNode(node); }

    /// Runs one line as received from a client and returns the answer, which may be empty. No input makes it throw.
    /// @param context for commands that ask for it: the calling std::shared_ptr<ClientConnection>.
    std::string Execute(const std::string& line, const boost::any& context = nullptr);

    /// Runs the service on this thread until it is stopped; does nothing if it runs already.
    void Run();
    /// Does the same on its own thread, for a process whose main thread has other work.
    void Start();
    /// Stops the service, and joins the thread if there is one. Any thread.
    void Stop();

    /// Called with each line that is not blank, as it came, before its command runs.
    void SetReceivedCallback(const ReceivedCallback& callback) { mReceived = callback; }
    /// Called with the name of each command and its result, the line end included, after it has run.
    void SetSentCallback(const SentCallback& callback) { mSent = callback; }

    boost::asio::io_service& GetService() { return mService; }
    RemoteCommandServer& GetServer() { return mServer; }

private:
    boost::asio::io_service& mService;
    RemoteCommandServer mServer;
    std::shared_ptr<NodeManager> mNodes;
    std::thread mThread;
    std::atomic<bool> mRunning{false};
    ReceivedCallback mReceived;
    SentCallback mSent;
};

} // namespace cmd
