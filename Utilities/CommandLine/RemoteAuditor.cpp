#include "Utilities/CommandLine/RemoteAuditor.h"

#include "Utilities/CommandLine/LogTail.h"

namespace cmd {

RemoteAuditor::RemoteAuditor(CommandLine& commandLine, const std::string& logPath)
    : KorvoAudit(logPath), mTail(std::make_shared<LogTail>(commandLine.GetService()))
{
    commandLine.AddAction(
        "tail",
        [weak = std::weak_ptr<LogTail>(mTail)](const std::shared_ptr<ClientConnection>& connection, bool on) {
            const auto tail = weak.lock();
            if (!tail) return false;
            return on ? tail->Add(connection) : tail->Remove(connection);
        },
        "Enable (or disable) log file tailing");
    mOpened =
        commandLine.GetServer().ConnectionOpened.connect([this](const std::shared_ptr<ClientConnection>& connection) {
            if (mTailByDefault) mTail->Add(connection);
        });
    mClosed = commandLine.GetServer().ConnectionClosed.connect(
        [this](const std::shared_ptr<ClientConnection>& connection, const boost::system::error_code&) {
            mTail->Remove(connection);
        });
}

void RemoteAuditor::OnLogLine(const std::string& line)
{
    mTail->OnLogLine(line);
}

} // namespace cmd
