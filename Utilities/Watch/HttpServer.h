#pragma once

#include "Utilities/Watch/Clock.h"
#include "Utilities/Watch/Metrics.h"
#include "Utilities/Watch/Picture.h"
#include "Utilities/Watch/Poller.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace watch {

class EventStream;

/// Accepts browsers and scrapers, and notifies the open event streams when the picture has changed. It reads the
/// picture and reports viewers to the poller; no content of a request goes any further.
class HttpServer
{
public:
    static constexpr std::size_t MaxConnections = 64;
    static constexpr std::size_t MaxViewers = 16;

    HttpServer(boost::asio::io_context& context, boost::asio::ip::tcp::acceptor acceptor, const Picture& picture,
               Poller& poller, std::vector<std::string> names);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;

    void Start();
    /// After a change of the picture; what follows closely goes out together.
    void OnChange();
    boost::asio::ip::tcp::endpoint Endpoint() const { return mAcceptor.local_endpoint(); }

    // For the sessions.
    const Picture& GetPicture() const { return mPicture; }
    Poller& GetPoller() { return mPoller; }
    const std::vector<std::string>& HostNames() const { return mNames; }
    OwnFigures Figures() const;
    void CountRequest() { ++mRequests; }
    /// Lives as long as a connection does.
    std::shared_ptr<void> TakePlace();
    /// For no more than MaxViewers.
    void AddViewer(const std::shared_ptr<EventStream>& stream);

private:
    void Accept();
    void Tick();
    void WakeViewers(bool tick);

    boost::asio::ip::tcp::acceptor mAcceptor;
    const Picture& mPicture;
    Poller& mPoller;
    const std::vector<std::string> mNames;
    Timer mAcceptTimer;
    Timer mChangeTimer;
    Timer mTickTimer;
    bool mChangePending = false;
    std::shared_ptr<std::size_t> mConnections = std::make_shared<std::size_t>(0);
    std::uint64_t mRequests = 0;
    std::vector<std::weak_ptr<EventStream>> mViewers;
};

} // namespace watch
