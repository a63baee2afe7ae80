#include "Utilities/CommandLine/LogTail.h"

#include "Utilities/CommandLine/ClientConnection.h"

#include <algorithm>
#include <utility>

namespace cmd {

void LogTail::OnLogLine(const std::string& line)
{
    if (mTailCount.load() == 0) return;
    {
        const std::lock_guard<std::mutex> lock(mLock);
        if (mBacklog.size() + line.size() > mMaxBacklog) {
            ++mLost;
            return;
        }
        const bool posted = !mBacklog.empty();
        mBacklog += line;
        if (posted) return;
    }
    mService.post([weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->Deliver();
    });
}

bool LogTail::Add(const std::shared_ptr<ClientConnection>& connection)
{
    if (std::find(mTailing.begin(), mTailing.end(), connection) != mTailing.end()) return false;
    Deliver();
    mTailing.push_back(connection);
    mTailCount = mTailing.size();
    connection->SetEcho(false);
    return true;
}

bool LogTail::Remove(const std::shared_ptr<ClientConnection>& connection)
{
    const auto entry = std::find(mTailing.begin(), mTailing.end(), connection);
    if (entry == mTailing.end()) return false;
    Deliver();
    mTailing.erase(entry);
    mTailCount = mTailing.size();
    connection->SetEcho(true);
    return true;
}

void LogTail::Deliver()
{
    const std::string text = TakeBacklog();
    for (const std::shared_ptr<ClientConnection>& connection : mTailing)
        connection->Write(text);
}

std::string LogTail::TakeBacklog()
{
    const std::lock_guard<std::mutex> lock(mLock);
    std::string text = std::exchange(mBacklog, std::string());
    if (mLost != 0) text += "*** " + std::to_string(std::exchange(mLost, 0)) + " log lines were not shown ***\r\n";
    return text;
}

} // namespace cmd
