#pragma once

#include "K2Common/K2Heartbeat.h"
#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include <array>
#include <cstdint>
#include <mutex>
#include <optional>

/// What this module knows of master routers, and the variants that its links send for it. Any thread. No operation is
/// seen half done, and none calls anything that takes a lock.
class RouterState
{
public:
    explicit RouterState(std::uint32_t portCount);

    /// Without a last variant, which each link has for itself.
    LinkRules::OwnState Snapshot() const;
    /// The heartbeat that a link has to send.
    K2Heartbeat::LinkState MakeHeartbeat(LinkIndex link) const;
    /// Whether a router on any link reports a master.
    bool HasMaster() const;
    /// Counts the new routers that have been followed.
    std::uint32_t CountFollowed() const;

    void SetLocalRack(std::uint32_t rack);
    void SetSampleRate(SampleRates::SystemSampleRate rate);
    /// Decides what a heartbeat asks for. The variant of a router to be followed is sent from then on.
    /// @param lastVariant empty for a new neighbour.
    LinkRules::HeartbeatDecision Follow(LinkIndex link, const K2Heartbeat::LinkState& packet,
                                        std::optional<K2Heartbeat::LinkVariant> lastVariant);
    /// False, and nothing done, once routers are disallowed.
    bool SetMaster(std::uint32_t rack);
    /// This module becomes its own master.
    /// @param followed if given, the count that must still hold; false, and nothing done, if it does not.
    bool Disallow(std::optional<std::uint32_t> followed);

    enum class Loss { Nothing, Master, LastIgnoredRouter };
    /// The neighbour of a link is gone. @return what has been lost with it.
    Loss Leave(LinkIndex link);

private:
    bool HasMasterNow() const;

    const std::uint32_t mPortCount;
    mutable std::mutex mMutex;
    LinkRules::OwnState mState;
    /// By Routing::PortsEnum.
    std::array<K2Heartbeat::LinkVariant, Routing::PORT_COUNT> mVariants;
    std::uint32_t mFollowed{};
};
