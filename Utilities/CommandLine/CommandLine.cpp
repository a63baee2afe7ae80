#include "Utilities/CommandLine/CommandLine.h"

#include <boost/algorithm/string/trim.hpp>

#include <sstream>

namespace cmd {

namespace {

constexpr char HelpFlag[] = " --help";

/// A parsed line: the name of the command, its arguments, and whether it only asks for help.
struct Request
{
    std::string name;
    std::string arguments;
    bool help = false;
};

Request Split(std::string line)
{
    Request request;
    const std::size_t flag = line.find(HelpFlag);
    if (flag != std::string::npos) {
        line.erase(flag, sizeof HelpFlag - 1);
        request.help = true;
    }
    const std::size_t blank = line.find(' ');
    request.name = line.substr(0, blank);
    if (blank != std::string::npos) request.arguments = line.substr(blank + 1);
    return request;
}

} // namespace

CommandLine::CommandLine(boost::asio::io_service& service, const boost::asio::ip::tcp::endpoint& endpoint,
                         const std::string& name)
    : mService(service), mServer(service, endpoint, name), mNodes(std::make_shared<NodeManager>())
{
    AddAction(
        "help",
        [this] {
            std::ostringstream listing;
            mNodes->PrintHelp(listing);
            return listing.str();
        },
        "List available actions");
    AddAction(
        "quit",
        [this] {
            mRunning = false;
            mService.stop();
        },
        "Terminate the application");
    mServer.LineReceived.connect([this](const std::shared_ptr<ClientConnection>& connection, const std::string& line) {
        const std::string result = Execute(line, connection);
        if (!result.empty()) connection->WriteResult(result);
    });
}

CommandLine::~CommandLine()
{
    if (mThread.joinable()) Stop();
}

std::string CommandLine::Execute(const std::string& line, const boost::any& context)
{
    const std::string trimmed = boost::trim_copy(line);
    if (trimmed.empty()) return {};
    const Request request = Split(trimmed);
    if (mReceived) mReceived(line);

    std::string result;
    const std::shared_ptr<action::Action> action = mNodes->Find(request.name);
    if (!action) {
        result = "unrecognised command '" + request.name + "'";
    } else if (request.help) {
        result = action->GetFull();
    } else {
        result = action->Run(request.arguments, context);
    }
    if (!result.empty()) result += '\n';
    if (mSent) mSent(request.name, result);
    return result;
}

void CommandLine::Run()
{
    if (mRunning.exchange(true)) return;
    // A handler that throws ends this run, and the caller may want another.
    const std::unique_ptr<std::atomic<bool>, void (*)(std::atomic<bool>*)> running(
        &mRunning, [](std::atomic<bool>* flag) { *flag = false; });
    mService.run();
}

void CommandLine::Start()
{
    if (!mThread.joinable()) mThread = std::thread([this] { Run(); });
}

void CommandLine::Stop()
{
    mService.stop();
    mRunning = false;
    if (mThread.joinable() && mThread.get_id() != std::this_thread::get_id()) mThread.join();
}

} // namespace cmd
