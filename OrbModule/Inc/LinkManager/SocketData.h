#pragma once

#include "OrbModule/Inc/LinkManager/LinkManager.h"
#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include <array>
#include <boost/asio.hpp>
#include <optional>

/// One live link: sends this module's heartbeats to the neighbour, receives the neighbour's, and reports to LinkManager
/// what they mean. Built and destroyed on the main thread; its handlers run on their own thread, which never waits for
/// the main thread, so that heartbeats leave on time.
class LinkManager::SocketData
{
public:
    /// Opens and binds the socket; nothing runs before Start.
    /// @param number distinguishes this link from all others of the manager; @param remoteId the driver's id of the
    /// neighbour, used as its HID until the first heartbeat.
    /// @throws boost::system::system_error if the local endpoint cannot be bound.
    SocketData(LinkManager& manager, std::uint32_t number, const Endpoint& local, LinkIndex link,
               std::uint32_t remoteId, const Endpoint& remote, std::uint8_t remotePort);
    /// Stops.
    ~SocketData() { Stop(); }

    /// For options of the socket, before Start.
    boost::asio::ip::udp::socket& GetSocket() { return mSocket; }
    /// Starts the thread; the first heartbeat leaves at once. To be called once.
    void Start();
    /// Joins the thread. It cannot be started again.
    void Stop();
    std::uint32_t GetNumber() const { return mNumber; }
    /// Any thread; takes effect on the link's.
    void SetTimeout(std::chrono::milliseconds timeout);
    /// Any thread.
    Hid GetRemoteHid() const { return mRemoteHid.load(); }
    LinkType GetLinkType() const { return mLinkType.load(); }

private:
    using Clock = std::chrono::steady_clock;

    void StartReceive();
    void OnReceive(const boost::system::error_code& error, std::size_t size);
    void OnHeartbeat(const K2Heartbeat::LinkState& packet);
    bool TakeHeartbeat(const K2Heartbeat::LinkState& packet);
    /// @return whether to ignore the heartbeat: its stream is about to close, or the neighbour has just become lost.
    bool CheckLateness(const K2Heartbeat::LinkState& packet);
    template <class Action>
    void Post(Action action);
    void PostNewDevice(const K2Heartbeat::LinkState& packet);

    void StartTimeoutTimer();
    void CancelTimeoutTimer();
    void HandleHeartbeatTimeout();

    void StartSendTimer(std::chrono::milliseconds wait);
    void OnSendTimer(const boost::system::error_code& error);
    void Send();

    boost::asio::io_service mService;
    boost::asio::io_service::work mWork{mService};
    boost::asio::ip::udp::socket mSocket;
    const Endpoint mLocalEndpoint;
    const LinkIndex mGigePort;
    std::atomic<std::uint32_t> mRemoteHid;
    std::atomic<LinkType> mLinkType{K2Heartbeat::K2_NO_TYPE};
    const Endpoint mRemoteEndpoint;
    const std::uint8_t mRemotePort;
    LinkManager& mManager;
    const std::uint32_t mNumber;
    RestartableTimer mTimeoutTimer;
    std::chrono::milliseconds mTimeout{0};
    RestartableTimer mSendTimer;
    Endpoint mSender;
    /// Longer than a heartbeat, so that a longer datagram shows.
    std::array<std::uint8_t, 64> mReceiveBuffer{};
    bool mReceivePending = false;
    std::optional<K2Heartbeat::LinkVariant> mLastVariant;
    Clock::time_point mLastSend;
    Clock::time_point mLastTimerStart;
    /// What this link has posted and the main thread has not done yet; it outlives the link in what is posted.
    const std::shared_ptr<std::atomic<std::uint32_t>> mPosted = std::make_shared<std::atomic<std::uint32_t>>(0);
    std::thread mThread;
};
