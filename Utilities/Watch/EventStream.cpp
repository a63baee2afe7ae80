#include "Utilities/Watch/EventStream.h"

#include "Utilities/Watch/Clock.h"
#include "Utilities/Watch/HttpServer.h"
#include "Utilities/Watch/HttpSession.h"
#include "Utilities/Watch/StateJson.h"

#include <boost/asio/write.hpp>

#include <chrono>
#include <utility>

namespace watch {

namespace {

/// A browser that takes nothing for so long is closed.
constexpr std::chrono::seconds WritePatience{20};
constexpr std::size_t LinesAtOnce = 200;

std::string EventText(std::string_view name, std::string_view data)
{
    return "event: " + std::string(name) + "\ndata: " + std::string(data) + "\n\n";
}

} // namespace

EventStream::EventStream(boost::beast::tcp_stream stream, HttpServer& server, std::shared_ptr<void> place,
                         std::uint64_t seen)
    : mStream(std::move(stream)),
      mServer(server),
      mPlace(std::move(place)),
      mLook(server.GetPoller().Watch()),
      mNextLine(seen <= server.GetPicture().Log().Newest() ? seen + 1 : 1)
{}

void EventStream::Start()
{
    AwaitEnd();
    Send("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n" + SecurityHeaders() +
         "\r\nretry: 1000\n\n");
}

/// A browser sends nothing more; what it would send is passed over.
void EventStream::AwaitEnd()
{
    mStream.socket().async_read_some(boost::asio::buffer(mIgnored),
                                     [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
                                         if (!error) {
                                             self->AwaitEnd();
                                             return;
                                         }
                                         boost::system::error_code ignored;
                                         self->mStream.socket().close(ignored);
                                     });
}

void EventStream::Wake(bool tick)
{
    mWoken = true;
    mTick = mTick || tick;
    if (!mBusy) SendNext();
}

void EventStream::SendNext()
{
    mBusy = false;
    if (!std::exchange(mWoken, false)) return;
    std::string text = StateEvent() + LogEvent();
    if (std::exchange(mTick, false)) text += EventText("tick", "{\"time\":" + std::to_string(NowMs()) + "}");
    if (!text.empty()) Send(std::move(text));
}

void EventStream::Send(std::string bytes)
{
    mBusy = true;
    mBytes = std::move(bytes);
    mStream.expires_after(WritePatience);
    boost::asio::async_write(mStream, boost::asio::buffer(mBytes),
                             [self = shared_from_this()](const boost::system::error_code& error, std::size_t) {
                                 // A broken connection is noticed by its read.
                                 if (!error) self->SendNext();
                             });
}

std::string EventStream::StateEvent()
{
    const Picture& picture = mServer.GetPicture();
    std::string sections;
    for (std::size_t i = 0; i < SectionCount; ++i) {
        const auto section = static_cast<Section>(i);
        const std::uint64_t version = picture.Version(section);
        if (version == mVersions[i]) continue;
        mVersions[i] = version;
        sections += ",\"" + std::string(SectionNames[i]) + "\":" + picture.Json(section);
    }
    if (sections.empty()) return {};
    return EventText("state", "{\"schema\":1,\"version\":" + std::to_string(picture.StateVersion()) +
                                  ",\"time\":" + std::to_string(NowMs()) + sections + "}");
}

std::string EventStream::LogEvent()
{
    const LogStore& log = mServer.GetPicture().Log();
    if (mNextLine > log.Newest()) return {};
    const std::string json = LogJson(log, mNextLine, LinesAtOnce);
    const std::uint64_t oldest = log.Newest() - log.Entries().size() + 1;
    const std::uint64_t last = std::min(log.Newest(), std::max(mNextLine, oldest) + LinesAtOnce - 1);
    mNextLine = last + 1;
    if (mNextLine <= log.Newest()) mWoken = true;
    return "id: " + std::to_string(last) + "\n" + EventText("log", json);
}

} // namespace watch
