#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include "Tests/Support/Joined.h"

#include <gmock/gmock.h>

using namespace LinkRules;
using std::chrono::milliseconds;

namespace {

K2Heartbeat::LinkState Packet(std::uint8_t type, std::uint32_t variant)
{
    const auto byte = [variant](int i) { return static_cast<std::uint8_t>(variant >> (8 * i)); };
    const std::uint8_t bytes[] = {0x00, 0x80, 0x02, 0x01, type, 0xAA, 0xBB, 0xCC, byte(0), byte(1), byte(2), byte(3)};
    return K2Heartbeat::LinkState(bytes);
}

/// "ignored router, conflict, notification 2, followed, internals"
std::string Text(const HeartbeatDecision& decision)
{
    static const std::string neighbours[] = {"known", "new", "ignored Orb", "ignored router"};
    return neighbours[static_cast<std::size_t>(decision.neighbour)] + (decision.baseRateConflict ? ", conflict" : "") +
           (decision.notification ? ", notification " + std::to_string(*decision.notification) : "") +
           (decision.followRouter ? ", followed" : "") + (decision.internalsChanged ? ", internals" : "");
}

constexpr std::uint32_t Variant48 = 0x01020003;
constexpr std::uint32_t Variant44 = 0x01020023;
constexpr std::uint32_t NoMaster = 0xFFFF;
constexpr std::uint32_t Default = 0xC001;
const std::nullopt_t None = std::nullopt;

} // namespace

TEST(LinkRulesTest, Heartbeats)
{
    const struct
    {
        std::uint8_t type;
        std::uint32_t variant;
        std::optional<std::uint32_t> last;
        bool routersAllowed;
        std::uint32_t localRack, masterRack;
        std::uint8_t routerPorts;
        const char* decision;
    } cases[] = {
        // Boxes, devices of an unknown type and hubs.
        {3, 0x55, None, true, 5, NoMaster, 0, "new"},
        {200, 0x55, None, true, 5, NoMaster, 0, "new"},
        {5, Variant44, None, true, 5, NoMaster, 0, "new"},
        {5, Variant48, None, false, 5, 5, 0, "new"},
        {2, 0x55, 0x55, true, 5, NoMaster, 0, "known"},
        {2, 0x56, 0x55, false, 5, 5, 0, "known, internals"},
        {5, 0x56, 0x55, true, 5, NoMaster, 0, "known"},
        // Orbs, the second after a box on the same cable.
        {6, Variant48, None, true, 5, NoMaster, 0, "ignored Orb"},
        {6, Variant48, Variant44, true, 5, NoMaster, 0, "known"},
        // New routers, those at another rate or at none being a conflict.
        {1, Variant48, None, true, 5, NoMaster, 0, "new, followed"},
        {1, Variant48, None, true, 5, 0x0102, 1, "new, followed"},
        {1, Variant44, None, true, 5, NoMaster, 0, "ignored router, conflict"},
        {1, Variant44, None, true, Default, NoMaster, 0, "ignored router, conflict"},
        {1, 0x01020013, None, true, 5, NoMaster, 0, "ignored router, conflict"},
        // While routers are disallowed: a second one, and another rack that is master, cause no notification.
        {1, Variant48, None, false, 5, 5, 0, "ignored router, notification 2"},
        {1, Variant44, None, false, 5, 5, 0, "ignored router, notification 2"},
        {1, Variant48, None, false, Default, Default, 0, "ignored router, notification 1"},
        {1, Variant48, None, false, 5, 5, 2, "ignored router"},
        {1, Variant48, None, false, 5, 0x0102, 0, "ignored router"},
        // Known routers: with another master, at another rate, after this system changed its rate.
        {1, Variant48, Variant48, true, 5, 0x0102, 1, "known"},
        {1, 0x01030003, Variant48, true, 5, 0x0102, 1, "known, followed"},
        {1, 0x01030003, Variant48, false, 5, 5, 1, "known"},
        {1, Variant44, Variant48, true, 5, 0x0102, 1, "known, conflict"},
        {1, Variant44, Variant44, true, 5, 0x0102, 1, "known, conflict"},
    };
    for (const auto& [type, variant, last, allowed, localRack, masterRack, routerPorts, decision] : cases) {
        const OwnState own{localRack, masterRack, SampleRates::RATE_48K, allowed, routerPorts, last};
        EXPECT_EQ(Text(DecideHeartbeat(own, Packet(type, variant))), decision) << unsigned{type} << " " << variant;
    }
}

TEST(LinkRulesTest, TheVariantToKeepTakesNumberAndRackFromTheRouterAndTheRateFromThisSystem)
{
    OwnState own;
    EXPECT_EQ(DecideHeartbeat(own, Packet(1, 0x0102FFEA)).variantToKeep, 0x0102000Au);
    own.rate = SampleRates::RATE_44K1;
    EXPECT_EQ(DecideHeartbeat(own, Packet(1, 0x0102FFEA)).variantToKeep, 0x0102002Au);
}

TEST(LinkRulesTest, Times)
{
    EXPECT_EQ(GetSendDelay(milliseconds(800)), std::nullopt);
    EXPECT_EQ(GetSendDelay(milliseconds(801)), milliseconds(501)) << "half a second past the period";
    // Routers are waited for five seconds longer than they may take.
    EXPECT_EQ(ComputeRouterAllowance(10000), 15000u);
    EXPECT_EQ(ComputeRouterAllowance(0xFFFFFFFF), 0xFFFFFFFFu);
    const struct
    {
        int elapsed, timeout;
        StreamState stream;
        bool report, force, ignore;
    } cases[] = {
        {500, 1000, StreamState::Open, false, false, false}, {501, 1000, StreamState::Open, true, false, false},
        {999, 1000, StreamState::Open, true, false, false},  {1000, 1000, StreamState::Open, true, true, true},
        {1000, 1000, StreamState::None, true, false, false}, {5000, 1000, StreamState::Closing, true, false, true},
        {5000, 0, StreamState::Open, false, false, false},   {100, 0, StreamState::Closing, false, false, true},
        {450, 400, StreamState::Open, false, false, false},
    };
    for (const auto& [elapsed, timeout, stream, report, force, ignore] : cases) {
        const Lateness late = DecideLateness(milliseconds(elapsed), milliseconds(timeout), stream);
        EXPECT_EQ(std::tie(late.report, late.forceTimeout, late.ignoreHeartbeat), std::tie(report, force, ignore))
            << elapsed << " of " << timeout;
    }
}

TEST(LinkRulesTest, EndpointsOfALinkFollowFromTheTwoIdentities)
{
    const std::tuple<std::uint32_t, K2LinkStatus, const char*> cases[] = {
        {0x12, {0, 0x50, 0}, "0.10.0.1:60002|0.10.0.254:60001|"},
        {0x12, {1, 0x50, 1}, "0.10.33.2:60002|0.10.33.254:60001|"},
        {0x28, {0, 0x24, 1}, "0.10.0.254:60001|0.10.0.2:60002|"},
        {0x12, {0x101, 0x50, 0x301}, "0.10.33.2:60002|0.10.33.254:60001|"}, // port numbers come in the low 8 bits
        // Just above, at and just below twice our rack: only above it does the far end own the network.
        {0x12, {0, 0x25, 0}, "0.4.160.1:60002|0.4.160.254:60001|"},
        {0x12, {0, 0x24, 0}, "0.4.128.254:60001|0.4.128.1:60002|"},
        {0x12, {1, 0x23, 0}, "0.4.161.254:60001|0.4.161.1:60002|"},
        {0xFFFF, {0, 0x1FFFE, 2}, "63.255.192.254:60001|63.255.192.3:60002|"},
        // No neighbour, or no rack of our own yet.
        {0x12, {1, 0xFFFFFFFF, 0}, "0.0.0.0:0|0.0.0.0:0|"},
        {0xFFFFFFFF, {0, 0x50, 0}, "0.0.0.0:60001|0.0.0.0:60002|"},
    };
    for (const auto& [rack, status, endpoints] : cases) {
        const LinkEndpoints link = ComputeEndpoints(rack, status);
        EXPECT_EQ(Joined(link.local, link.remote), endpoints);
    }
    EXPECT_EQ(GetLinkLocalAddress(0x12, 0, 0xFFFFFFFF, 0, true) + GetLinkRemoteAddress(0x12, 0, 0xFFFFFFFF, 0, true),
              0u);
}
