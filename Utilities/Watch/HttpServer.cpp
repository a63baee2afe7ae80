#include "Utilities/Watch/HttpServer.h"

#include "Utilities/Watch/EventStream.h"
#include "Utilities/Watch/HttpSession.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace watch {

namespace {

constexpr std::chrono::milliseconds AcceptRetry{100};
constexpr std::chrono::milliseconds Gather{50};
constexpr std::chrono::seconds TickPeriod{2};

} // namespace

HttpServer::HttpServer(boost::asio::io_context& context, boost::asio::ip::tcp::acceptor acceptor,
                       const Picture& picture, Poller& poller, std::vector<std::string> names)
    : mAcceptor(std::move(acceptor)),
      mPicture(picture),
      mPoller(poller),
      mNames(std::move(names)),
      mAcceptTimer(context),
      mChangeTimer(context),
      mTickTimer(context)
{}

void HttpServer::Start()
{
    Accept();
    Tick();
}

void HttpServer::Accept()
{
    mAcceptor.async_accept([this](const boost::system::error_code& error, boost::asio::ip::tcp::socket socket) {
        if (error == boost::asio::error::operation_aborted) return;
        if (error) {
            // With no descriptor left the next accept would fail at once, and so on.
            mAcceptTimer.expires_after(AcceptRetry);
            mAcceptTimer.async_wait([this](const boost::system::error_code& failed) {
                if (!failed) Accept();
            });
            return;
        }
        if (*mConnections < MaxConnections) std::make_shared<HttpSession>(std::move(socket), *this)->Start();
        Accept();
    });
}

std::shared_ptr<void> HttpServer::TakePlace()
{
    ++*mConnections;
    return {nullptr, [connections = mConnections](void*) { --*connections; }};
}

void HttpServer::AddViewer(const std::shared_ptr<EventStream>& stream)
{
    mViewers.erase(std::remove_if(mViewers.begin(), mViewers.end(),
                                  [](const std::weak_ptr<EventStream>& viewer) { return viewer.expired(); }),
                   mViewers.end());
    mViewers.push_back(stream);
}

OwnFigures HttpServer::Figures() const
{
    const auto viewers = std::count_if(mViewers.begin(), mViewers.end(),
                                       [](const std::weak_ptr<EventStream>& viewer) { return !viewer.expired(); });
    return {static_cast<std::size_t>(viewers), mRequests, mPoller.ListingsUnderway()};
}

void HttpServer::OnChange()
{
    if (std::exchange(mChangePending, true)) return;
    mChangeTimer.expires_after(Gather);
    mChangeTimer.async_wait([this](const boost::system::error_code& error) {
        mChangePending = false;
        if (!error) WakeViewers(false);
    });
}

void HttpServer::Tick()
{
    mTickTimer.expires_after(TickPeriod);
    mTickTimer.async_wait([this](const boost::system::error_code& error) {
        if (error) return;
        WakeViewers(true);
        Tick();
    });
}

void HttpServer::WakeViewers(bool tick)
{
    for (const std::weak_ptr<EventStream>& viewer : mViewers)
        if (const auto stream = viewer.lock()) stream->Wake(tick);
}

} // namespace watch
