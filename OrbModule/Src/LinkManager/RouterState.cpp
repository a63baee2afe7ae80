#include "OrbModule/Inc/LinkManager/RouterState.h"

using Lock = std::lock_guard<std::mutex>;

RouterState::RouterState(std::uint32_t portCount) : mPortCount(portCount)
{
    mVariants.fill(K2Heartbeat::START_VARIANT);
}

LinkRules::OwnState RouterState::Snapshot() const
{
    const Lock lock(mMutex);
    return mState;
}

K2Heartbeat::LinkState RouterState::MakeHeartbeat(LinkIndex link) const
{
    const Lock lock(mMutex);
    return {MakeLinkHid(mState.localRack << 16), K2Heartbeat::K2_ORB_TYPE, mVariants[ToPort(link)]};
}

bool RouterState::HasMaster() const
{
    const Lock lock(mMutex);
    return HasMasterNow();
}

bool RouterState::HasMasterNow() const
{
    return K2Heartbeat::GetVariantRack(mVariants[Routing::PRIMARY_PORT]) != INVALID_RACK_ID ||
           K2Heartbeat::GetVariantRack(mVariants[Routing::SECONDARY_PORT]) != INVALID_RACK_ID;
}

std::uint32_t RouterState::CountFollowed() const
{
    const Lock lock(mMutex);
    return mFollowed;
}

void RouterState::SetLocalRack(std::uint32_t rack)
{
    const Lock lock(mMutex);
    mState.localRack = rack;
}

void RouterState::SetSampleRate(SampleRates::SystemSampleRate rate)
{
    const Lock lock(mMutex);
    mState.rate = rate;
    for (auto& variant : mVariants)
        variant = K2Heartbeat::WithVariantRate(variant, rate);
}

LinkRules::HeartbeatDecision RouterState::Follow(LinkIndex link, const K2Heartbeat::LinkState& packet,
                                                 std::optional<K2Heartbeat::LinkVariant> lastVariant)
{
    const Lock lock(mMutex);
    LinkRules::OwnState own = mState;
    own.lastVariant = lastVariant;
    const LinkRules::HeartbeatDecision decision = LinkRules::DecideHeartbeat(own, packet);
    if (!lastVariant && LinkRules::IsRouter(packet.GetType())) {
        mState.routerPorts = static_cast<std::uint8_t>(mState.routerPorts | 1u << ToNumber(link));
    }
    if (decision.followRouter) {
        mVariants[ToPort(link)] = decision.variantToKeep;
        if (!lastVariant) ++mFollowed;
    }
    return decision;
}

bool RouterState::SetMaster(std::uint32_t rack)
{
    const Lock lock(mMutex);
    if (mState.routersAllowed) mState.masterRack = rack;
    return mState.routersAllowed;
}

bool RouterState::Disallow(std::optional<std::uint32_t> followed)
{
    const Lock lock(mMutex);
    if (followed && *followed != mFollowed) return false;
    mState.routersAllowed = false;
    mState.masterRack = mState.localRack;
    for (const LinkIndex link : FirstLinks(mPortCount))
        mVariants[ToPort(link)] = K2Heartbeat::MakeVariant(0, mState.rate, mState.localRack);
    return true;
}

RouterState::Loss RouterState::Leave(LinkIndex link)
{
    const Lock lock(mMutex);
    mState.routerPorts = static_cast<std::uint8_t>(mState.routerPorts & ~(1u << ToNumber(link)));
    if (!mState.routersAllowed) return mState.routerPorts == 0 ? Loss::LastIgnoredRouter : Loss::Nothing;
    auto& variant = mVariants[ToPort(link)];
    variant = K2Heartbeat::WithVariantRack(variant, INVALID_RACK_ID);
    return HasMasterNow() ? Loss::Nothing : Loss::Master;
}
