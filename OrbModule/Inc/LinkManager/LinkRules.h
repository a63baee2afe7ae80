#pragma once

#include "Common/KLV/Commands/NotificationCommands.h"
#include "K2Common/K2Heartbeat.h"
#include "OrbModule/Inc/LinkManager/K2LinkStatus.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <boost/asio/ip/udp.hpp>
#include <chrono>
#include <cstdint>
#include <optional>

/// The rules of the link layer as functions of values: what a driver report means, when a heartbeat is late, and what
/// a neighbour's heartbeat asks for. Without state and without sockets; LinkManager and its links act on the outcome.
namespace LinkRules {

constexpr std::chrono::milliseconds HeartbeatPeriod{300};
/// A send later than the period by more than this, and a receive later than the last one by more, are logged.
constexpr std::chrono::milliseconds LateLimit{500};

/// The two ends of a link. A default-constructed endpoint is no link.
struct LinkEndpoints
{
    boost::asio::ip::udp::endpoint local;
    boost::asio::ip::udp::endpoint remote;
};
/// Addresses and UDP ports that follow from a report on link index 0 or 1.
LinkEndpoints ComputeEndpoints(std::uint32_t localRack, const K2LinkStatus& status);

enum class LinkChange { None, Close, Open, Replace };
/// What a new local endpoint means for a port.
LinkChange DecideLinkChange(const boost::asio::ip::udp::endpoint& current, const boost::asio::ip::udp::endpoint& local);

/// By how much a send is late, if that is worth a line. @param elapsed since the last send.
std::optional<std::chrono::milliseconds> GetSendDelay(std::chrono::milliseconds elapsed);

/// What the time since the last heartbeat means for the next one.
struct Lateness
{
    bool report;
    bool forceTimeout;
    /// The stream of this neighbour is closing, or will be after the forced time-out.
    bool ignoreHeartbeat;
};
/// @param elapsed since the time-out was last started; @param timeout 0 if none; @param stream to the neighbour
Lateness DecideLateness(std::chrono::milliseconds elapsed, std::chrono::milliseconds timeout, StreamState stream);

/// How long routers are waited for, in milliseconds. @param allowance what the Orb router asks for.
std::uint32_t ComputeRouterAllowance(std::uint32_t allowance);

/// What the module is and knows when a heartbeat arrives.
struct OwnState
{
    std::uint32_t localRack = 0xFFFFFFFF;
    std::uint32_t masterRack = INVALID_RACK_ID;
    SampleRates::SystemSampleRate rate = SampleRates::RATE_48K;
    bool routersAllowed = true;
    /// Ports that had a router before this heartbeat.
    std::uint8_t routerPorts = 0;
    /// Variant of the last heartbeat on this link; empty for a new neighbour.
    std::optional<K2Heartbeat::LinkVariant> lastVariant;
};

/// What a heartbeat asks for.
struct HeartbeatDecision
{
    enum class Neighbour { Known, New, IgnoredOrb, IgnoredRouter };

    Neighbour neighbour = Neighbour::Known;
    /// A router at another base rate while routers are allowed: the sample rate notification, no routers from now on,
    /// a restart of the master control's link. The rest is decided as if that had happened.
    bool baseRateConflict{};
    /// To be given to a router that is ignored.
    std::optional<SornMasterRouterNotification::Number> notification;
    /// A router to be followed: the port sends variantToKeep, and the master is the one in the router's variant.
    bool followRouter = false;
    /// A known I/O device has changed its internals.
    bool internalsChanged = false;
    K2Heartbeat::LinkVariant variantToKeep = K2Heartbeat::START_VARIANT;
};
HeartbeatDecision DecideHeartbeat(const OwnState& own, const K2Heartbeat::LinkState& packet);

/// Only a master router counts; hubs and Orbs are routing devices, but not this.
constexpr bool IsRouter(K2Heartbeat::LinkType type)
{
    return type == K2Heartbeat::K2_ROUTER_TYPE;
}

} // namespace LinkRules
