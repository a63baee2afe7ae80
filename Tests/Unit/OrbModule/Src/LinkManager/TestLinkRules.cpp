#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include <gmock/gmock.h>

using namespace LinkRules;
using K2Heartbeat::LinkState;
using Neighbour = HeartbeatDecision::Neighbour;
using boost::asio::ip::udp;
using std::chrono::milliseconds;

namespace {

udp::endpoint Endpoint(const char* address, std::uint16_t port)
{
    return {boost::asio::ip::make_address_v4(address), port};
}

LinkState Packet(std::uint8_t type, std::uint32_t variant)
{
    const auto byte = [variant](int i) { return static_cast<std::uint8_t>(variant >> (8 * i)); };
    const std::uint8_t bytes[] = {0x00, 0x80, 0x02, 0x01, type, 0, 0, 0, byte(0), byte(1), byte(2), byte(3)};
    return LinkState(bytes);
}

constexpr std::uint32_t OtherRack = 0x1234;
constexpr std::uint32_t Variant48 = 0x01020003;
constexpr std::uint32_t Variant44 = 0x01020023;

struct HeartbeatCase
{
    const char* name;
    std::uint8_t type;
    std::uint32_t variant;
    std::optional<std::uint32_t> last;
    bool allowed;
    std::uint32_t localRack;
    std::uint32_t masterRack;
    std::uint8_t routerPorts;
    Neighbour neighbour;
    bool conflict = false;
    std::optional<SornMasterRouterNotification::Number> notification = std::nullopt;
    bool follow = false;
    bool internals = false;
};

constexpr auto New = Neighbour::New;
constexpr auto Known = Neighbour::Known;
constexpr auto NoRouter = Neighbour::IgnoredRouter;
const std::nullopt_t None = std::nullopt;

const HeartbeatCase HeartbeatCases[] = {
    // name, type, variant, last variant, routers allowed, own rack, master rack, ports with routers
    {"new box", 3, 0x55, None, true, OtherRack, 0xFFFF, 0, New},
    {"new device of an unknown type", 200, 0x55, None, true, OtherRack, 0xFFFF, 0, New},
    {"new hub at another rate", 5, Variant44, None, true, OtherRack, 0xFFFF, 0, New},
    {"new hub while routers are disallowed", 5, Variant48, None, false, OtherRack, OtherRack, 0, New},
    {"new Orb", 6, Variant48, None, true, OtherRack, 0xFFFF, 0, Neighbour::IgnoredOrb},
    {"known Orb, after a box on the same cable", 6, Variant48, Variant44, true, OtherRack, 0xFFFF, 0, Known},
    {"known box without news", 2, 0x55, 0x55, true, OtherRack, 0xFFFF, 0, Known},
    {"known box with changed internals", 2, 0x56, 0x55, false, OtherRack, OtherRack, 0, Known, false, None, false,
     true},
    {"known hub with a changed variant", 5, 0x56, 0x55, true, OtherRack, 0xFFFF, 0, Known},
    {"new router", 1, Variant48, None, true, OtherRack, 0xFFFF, 0, New, false, None, true},
    {"second new router", 1, Variant48, None, true, OtherRack, 0x0102, 1, New, false, None, true},
    {"new router at another rate", 1, Variant44, None, true, OtherRack, 0xFFFF, 0, NoRouter, true},
    {"new router at another rate with the default id", 1, Variant44, None, true, 0xC001, 0xFFFF, 0, NoRouter, true},
    {"new router of no base rate", 1, 0x01020013, None, true, OtherRack, 0xFFFF, 0, NoRouter, true},
    {"router while disallowed", 1, Variant48, None, false, OtherRack, OtherRack, 0, NoRouter, false,
     SornMasterRouterNotification::DETECTED},
    {"router at another rate while disallowed", 1, Variant44, None, false, OtherRack, OtherRack, 0, NoRouter, false,
     SornMasterRouterNotification::DETECTED},
    {"router while disallowed, default id", 1, Variant48, None, false, 0xC001, 0xC001, 0, NoRouter, false,
     SornMasterRouterNotification::DEFAULT_ID},
    {"second router while disallowed", 1, Variant48, None, false, OtherRack, OtherRack, 2, NoRouter},
    {"router while another rack is master", 1, Variant48, None, false, OtherRack, 0x0102, 0, NoRouter},
    {"known router without news", 1, Variant48, Variant48, true, OtherRack, 0x0102, 1, Known},
    {"known router with another master", 1, 0x01030003, Variant48, true, OtherRack, 0x0102, 1, Known, false, None,
     true},
    {"known router with another master while disallowed", 1, 0x01030003, Variant48, false, OtherRack, OtherRack, 1,
     Known},
    {"known router that changes the rate", 1, Variant44, Variant48, true, OtherRack, 0x0102, 1, Known, true},
    {"known router, after this system changed its rate", 1, Variant44, Variant44, true, OtherRack, 0x0102, 1, Known,
     true},
};

} // namespace

TEST(LinkRulesTest, Heartbeats)
{
    for (const HeartbeatCase& test : HeartbeatCases) {
        SCOPED_TRACE(test.name);
        OwnState own;
        own.localRack = test.localRack;
        own.masterRack = test.masterRack;
        own.routersAllowed = test.allowed;
        own.routerPorts = test.routerPorts;
        own.lastVariant = test.last;
        const HeartbeatDecision decision = DecideHeartbeat(own, Packet(test.type, test.variant));
        EXPECT_EQ(decision.neighbour, test.neighbour);
        EXPECT_EQ(decision.baseRateConflict, test.conflict);
        EXPECT_EQ(decision.notification, test.notification);
        EXPECT_EQ(decision.followRouter, test.follow);
        EXPECT_EQ(decision.internalsChanged, test.internals);
    }
}

TEST(LinkRulesTest, TheVariantToKeepTakesNumberAndRackFromTheRouterAndTheRateFromThisSystem)
{
    OwnState own;
    own.rate = SampleRates::RATE_44K1;
    EXPECT_EQ(DecideHeartbeat(own, Packet(1, 0x0102FFEA)).variantToKeep, 0x0102002Au);
    own.rate = SampleRates::RATE_48K;
    EXPECT_EQ(DecideHeartbeat(own, Packet(1, 0x0102FFEA)).variantToKeep, 0x0102000Au);
}

TEST(LinkRulesTest, ASendIsLateBeyondHalfASecondPastThePeriod)
{
    EXPECT_EQ(GetSendDelay(milliseconds(800)), std::nullopt);
    EXPECT_EQ(GetSendDelay(milliseconds(801)), milliseconds(501));
}

TEST(LinkRulesTest, LateHeartbeats)
{
    struct Case
    {
        int elapsed, timeout;
        StreamState stream;
        bool report, force, ignore;
    };
    const Case cases[] = {
        {500, 1000, StreamState::Open, false, false, false}, {501, 1000, StreamState::Open, true, false, false},
        {999, 1000, StreamState::Open, true, false, false},  {1000, 1000, StreamState::Open, true, true, true},
        {1000, 1000, StreamState::None, true, false, false}, {5000, 1000, StreamState::Closing, true, false, true},
        {5000, 0, StreamState::Open, false, false, false},   {100, 0, StreamState::Closing, false, false, true},
        {450, 400, StreamState::Open, false, false, false},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(std::to_string(test.elapsed) + " of " + std::to_string(test.timeout));
        const Lateness late = DecideLateness(milliseconds(test.elapsed), milliseconds(test.timeout), test.stream);
        EXPECT_EQ(late.report, test.report);
        EXPECT_EQ(late.forceTimeout, test.force);
        EXPECT_EQ(late.ignoreHeartbeat, test.ignore);
    }
}

/// The addresses have a table of their own; here it is the port that goes with the owner of the network.
TEST(LinkRulesTest, EndpointsOfALink)
{
    const auto endpoints = [](std::uint32_t port, std::uint32_t remoteId, std::uint32_t remotePort) {
        K2LinkStatus status;
        status.Port = port;
        status.RemoteId = remoteId;
        status.RemotePort = remotePort;
        const LinkEndpoints link = ComputeEndpoints(0x12, status);
        return std::make_pair(link.local, link.remote);
    };
    const auto remoteOwns = std::make_pair(Endpoint("0.10.0.1", 60002), Endpoint("0.10.0.254", 60001));
    EXPECT_EQ(endpoints(0, 0x50, 0), remoteOwns);
    EXPECT_EQ(endpoints(0x100, 0x50, 0x300), remoteOwns) << "port numbers come in the low 8 bits";
    EXPECT_EQ(endpoints(0, 0x24, 0), std::make_pair(Endpoint("0.4.128.254", 60001), Endpoint("0.4.128.1", 60002)));
    EXPECT_EQ(endpoints(0, 0xFFFFFFFF, 0), std::make_pair(udp::endpoint(), udp::endpoint()));
}

TEST(LinkRulesTest, RoutersAreWaitedForFiveSecondsLongerThanTheyMayTake)
{
    EXPECT_EQ(ComputeRouterAllowance(0), 5000u);
    EXPECT_EQ(ComputeRouterAllowance(10000), 15000u);
    EXPECT_EQ(ComputeRouterAllowance(0xFFFFFFFF), 0xFFFFFFFFu);
}
