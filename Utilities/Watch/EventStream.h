#pragma once

#include "Utilities/Watch/Picture.h"

#include <boost/beast/core/tcp_stream.hpp>

#include <array>
#include <cstdint>
#include <memory>
#include <string>

namespace watch {

class HttpServer;

/// One browser that follows the picture by server-sent events: "state" with the sections that have changed, "log" with
/// new lines, "tick" every two seconds. Nothing is queued for it: a message is made when it has taken the last one,
/// so a slow browser gets fewer pictures, and one that takes nothing for a while is disconnected.
class EventStream : public std::enable_shared_from_this<EventStream>
{
public:
    /// @param seen number of the last line of the log that it has, 0 for none.
    EventStream(boost::beast::tcp_stream stream, HttpServer& server, std::shared_ptr<void> place, std::uint64_t seen);

    void Start();
    /// Something may have changed.
    void Wake(bool tick);

private:
    void SendNext();
    void Send(std::string bytes);
    void AwaitEnd();
    std::string StateEvent();
    std::string LogEvent();

    boost::beast::tcp_stream mStream;
    HttpServer& mServer;
    const std::shared_ptr<void> mPlace;
    const std::shared_ptr<void> mLook;
    std::array<std::uint64_t, SectionCount> mVersions{};
    std::uint64_t mNextLine;
    bool mBusy = true;
    bool mWoken = true;
    bool mTick = false;
    std::string mBytes;
    std::array<char, 256> mIgnored{};
};

} // namespace watch
