#pragma once

#include "Audit/KorvoAudit.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <boost/signals2/connection.hpp>

#include <memory>
#include <string>

namespace cmd {

class LogTail;

/// The log of the module: the log file, and a copy of each line to the shell clients that tail it. Adds the command
/// "tail" to the shell.
///
/// Made and destroyed on the main thread, possibly before the shell is destroyed: its command then answers false.
class RemoteAuditor : public KorvoAudit
{
public:
    /// An empty log path means the default of KorvoAudit.
    RemoteAuditor(CommandLine& commandLine, const std::string& logPath);
    ~RemoteAuditor() override { FinishRotation(); }

    /// Whether a new client tails the log from the start; false at first. Main service only.
    void SetTailByDefault(bool tail) { mTailByDefault = tail; }

    void OnLogLine(const std::string& line) override;

private:
    const std::shared_ptr<LogTail> mTail;
    bool mTailByDefault = false;
    boost::signals2::scoped_connection mOpened;
    boost::signals2::scoped_connection mClosed;
};

} // namespace cmd
