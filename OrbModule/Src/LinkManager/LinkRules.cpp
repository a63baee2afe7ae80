#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include "MiscSource/NetworkPorts.h"

#include <algorithm>

namespace LinkRules {

using boost::asio::ip::address_v4;
using boost::asio::ip::udp;

LinkEndpoints ComputeEndpoints(std::uint32_t localRack, const K2LinkStatus& status)
{
    if (status.RemoteId == K2LinkStatus::NoRemote) return {};
    const UINT8GIGEPORT port = ToNumber(status.GetLink());
    const auto remotePort = static_cast<std::uint8_t>(status.RemotePort);
    const bool primary = port == 0;
    const bool owner = OwnsLinkNetwork(localRack, status.RemoteId);
    return {{address_v4(GetLinkLocalAddress(localRack, port, status.RemoteId, remotePort, primary)),
             owner ? NetworkPorts::LINK_OWNER : NetworkPorts::LINK_GUEST},
            {address_v4(GetLinkRemoteAddress(localRack, port, status.RemoteId, remotePort, primary)),
             owner ? NetworkPorts::LINK_GUEST : NetworkPorts::LINK_OWNER}};
}

LinkChange DecideLinkChange(const udp::endpoint& current, const udp::endpoint& local)
{
    const udp::endpoint none;
    if (local == current) return LinkChange::None;
    if (local == none) return LinkChange::Close;
    return current == none ? LinkChange::Open : LinkChange::Replace;
}

std::optional<std::chrono::milliseconds> GetSendDelay(std::chrono::milliseconds elapsed)
{
    const std::chrono::milliseconds delay = elapsed - HeartbeatPeriod;
    if (delay > LateLimit) return delay;
    return std::nullopt;
}

Lateness DecideLateness(std::chrono::milliseconds elapsed, std::chrono::milliseconds timeout, StreamState stream)
{
    const bool report = elapsed > LateLimit && timeout.count() != 0;
    const bool forceTimeout = report && elapsed >= timeout && stream == StreamState::Open;
    return {report, forceTimeout, stream == StreamState::Closing || forceTimeout};
}

std::uint32_t ComputeRouterAllowance(std::uint32_t allowance)
{
    constexpr std::uint32_t Margin = 5000;
    return std::min(allowance, 0xFFFFFFFF - Margin) + Margin;
}

HeartbeatDecision DecideHeartbeat(const OwnState& own, const K2Heartbeat::LinkState& packet)
{
    using Neighbour = HeartbeatDecision::Neighbour;
    const K2Heartbeat::LinkVariant variant = packet.GetVariant();
    const bool isRouter = IsRouter(packet.GetType());
    const bool changed = own.lastVariant && *own.lastVariant != variant;

    HeartbeatDecision result;
    result.variantToKeep = K2Heartbeat::MakeVariant(K2Heartbeat::GetVariantNumber(variant), own.rate,
                                                    K2Heartbeat::GetVariantRack(variant));
    result.baseRateConflict = isRouter && own.routersAllowed && own.rate != K2Heartbeat::GetVariantRate(variant);
    const bool routersAllowed = own.routersAllowed && !result.baseRateConflict;

    if (own.lastVariant) {
        result.internalsChanged = changed && K2Heartbeat::IsIoDevice(packet.GetType());
        result.followRouter = changed && isRouter && routersAllowed;
        return result;
    }
    if (K2Heartbeat::IsOrb(packet.GetType())) {
        result.neighbour = Neighbour::IgnoredOrb;
    } else if (isRouter && !routersAllowed) {
        result.neighbour = Neighbour::IgnoredRouter;
        const bool notified = result.baseRateConflict || own.routerPorts != 0;
        if (!notified && own.masterRack == own.localRack) {
            result.notification = own.localRack == DEFAULT_RACK_ID ? SornMasterRouterNotification::DEFAULT_ID
                                                                   : SornMasterRouterNotification::DETECTED;
        }
    } else {
        result.neighbour = Neighbour::New;
        result.followRouter = isRouter;
    }
    return result;
}

} // namespace LinkRules
