#pragma once

#include <boost/asio/io_service.hpp>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace cmd {

class ClientConnection;

/// The shell clients that follow the log, and the lines on their way to them.
///
/// Lines come from any thread and are handed to the main service, where all else lives. mLock guards the backlog; it
/// is the innermost of all locks, and nothing here logs while it is held. The backlog is bounded: lines that come while
/// it is full are counted and reported in one line.
class LogTail : public std::enable_shared_from_this<LogTail>
{
public:
    /// The longest listing of a command is shorter, and all of it waits until the command ends.
    static constexpr std::size_t MaxBacklog = 32 * 1024 * 1024;

    /// @param maxBacklog bytes that may wait for the main service.
    explicit LogTail(boost::asio::io_service& service, std::size_t maxBacklog = MaxBacklog)
        : mService(service), mMaxBacklog(maxBacklog)
    {}

    /// Any thread, even with a lock of the log held. Costs one load while no client tails.
    void OnLogLine(const std::string& line);

    // Main service. What was logged before the call reaches the clients that tailed then. True if anything changed.
    bool Add(const std::shared_ptr<ClientConnection>& connection);
    bool Remove(const std::shared_ptr<ClientConnection>& connection);

private:
    void Deliver();
    std::string TakeBacklog();

    boost::asio::io_service& mService;
    const std::size_t mMaxBacklog;
    std::vector<std::shared_ptr<ClientConnection>> mTailing;
    std::atomic<std::size_t> mTailCount{0};
    std::mutex mLock;
    std::string mBacklog;
    std::size_t mLost = 0;
};

} // namespace cmd
