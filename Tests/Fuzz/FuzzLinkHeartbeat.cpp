// A neighbour's heartbeat in any state of this module: 8 bytes of own state, then the packet.

#include "OrbModule/Inc/LinkManager/LinkRules.h"
#include "Tests/Fuzz/Require.h"

#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using LinkRules::HeartbeatDecision;
    constexpr std::size_t OwnSize = 8;
    if (size != OwnSize + K2Heartbeat::LinkState::SIZE) return 0;

    LinkRules::OwnState own;
    own.localRack = data[0] == 0 ? DEFAULT_RACK_ID : data[0];
    own.masterRack = data[1] == 0 ? own.localRack : data[1];
    own.rate = (data[2] & 1) != 0 ? SampleRates::RATE_44K1 : SampleRates::RATE_48K;
    own.routersAllowed = (data[2] & 2) != 0;
    own.routerPorts = data[3] & 3;
    const K2Heartbeat::LinkState packet(data + OwnSize);
    if ((data[2] & 4) != 0) own.lastVariant = (data[2] & 8) != 0 ? packet.GetVariant() : data[4] * 0x01010101u;

    const HeartbeatDecision decision = LinkRules::DecideHeartbeat(own, packet);
    const bool isRouter = LinkRules::IsRouter(packet.GetType());
    Require(isRouter || (!decision.baseRateConflict && !decision.followRouter && !decision.notification));
    Require(!decision.followRouter || (own.routersAllowed && !decision.baseRateConflict));
    Require(!(decision.followRouter && decision.internalsChanged));
    Require(decision.neighbour == HeartbeatDecision::Neighbour::Known || !own.lastVariant);
    Require(decision.neighbour != HeartbeatDecision::Neighbour::IgnoredRouter || !decision.followRouter);
    Require((decision.variantToKeep & 0xFFC0u) == 0);
    Require(K2Heartbeat::GetVariantRate(decision.variantToKeep) == own.rate);

    std::ostringstream text;
    text << packet.GetHid() << packet.GetType() << K2Heartbeat::GetVariantRate(packet.GetVariant());
    return 0;
}
