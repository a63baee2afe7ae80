#include "OrbModule/Inc/UDPDispatcher/UDPDispatcher.h"

#include "OrbModule/Inc/UDPDispatcher/NetworkTimeMessage.h"
#include "Tests/Support/LogRecorder.h"

#include <boost/asio.hpp>
#include <gmock/gmock.h>
#include <iostream>

using boost::asio::ip::udp;
using testing::ElementsAre;

namespace {

/// Another message of the fabric, which keeps its bytes in the base.
class OtherMessage : public FabricMessageBase
{
public:
    static constexpr std::size_t SIZE = 2;
    explicit OtherMessage(const char* bytes) { mData.assign(bytes, bytes + SIZE); }
    void Validate() override { ++mValidated; }
    int mValidated = 0;
};

class UDPDispatcherTest : public testing::Test
{
protected:
    UDPDispatcherTest()
    {
        mDispatcher.Register<SwitchFabric::NetworkTimeMessage, NetworkTimeMessage>(
            [this](const std::shared_ptr<const NetworkTimeMessage>& message) { mTimes.push_back(message->GetTime()); });
    }

    void Send(const std::string& bytes)
    {
        mSender.send_to(boost::asio::buffer(bytes), {boost::asio::ip::address_v4::loopback(), mDispatcher.GetPort()});
    }
    /// The datagrams arrive in order, so the time with this number stands for all that came before.
    void RunUntilTimes(std::size_t count)
    {
        while (mTimes.size() < count && mService.run_one_for(std::chrono::seconds(10)) > 0) {
        }
    }

    boost::asio::io_service mService;
    UDPDispatcher mDispatcher{mService, 0};
    udp::socket mSender{mService, udp::v4()};
    std::vector<std::uint32_t> mTimes;
    LogRecorder mLog;
};

} // namespace

TEST_F(UDPDispatcherTest, OnlyWholeMessagesOfAKnownNumberGetThroughAndReceptionGoesOn)
{
    Send(std::string("\x14\x78\x56\x34\xF2", 5));
    Send("");
    Send(std::string("\x15\x01\x02\x03\x04", 5));
    Send(std::string("\x14\x01\x02\x03", 4));
    Send(std::string(2000, '\x14'));
    Send(std::string("\x14\x01\x00\x00\x00\xFF", 6));
    RunUntilTimes(3);
    EXPECT_THAT(mTimes, ElementsAre(0xF2345678u, 0x14141414u, 1u));
    EXPECT_TRUE(mLog.Lines().empty());
}

TEST_F(UDPDispatcherTest, SlotsOfOneNumberShareItsSignal)
{
    std::vector<std::uint32_t> others;
    mDispatcher.Register<SwitchFabric::NetworkTimeMessage, NetworkTimeMessage>(
        [&](const std::shared_ptr<const NetworkTimeMessage>& message) { others.push_back(message->GetTime()); });
    Send(std::string("\x14\x07\x00\x00\x00", 5));
    RunUntilTimes(1);
    EXPECT_THAT(mTimes, ElementsAre(7u));
    EXPECT_THAT(others, ElementsAre(7u));
}

TEST_F(UDPDispatcherTest, ANumberBelongsToItsFirstClass)
{
    bool called = false;
    mDispatcher.Register<SwitchFabric::NetworkTimeMessage, OtherMessage>(
        [&](const std::shared_ptr<const OtherMessage>&) { called = true; });
    ASSERT_EQ(mLog.Lines().size(), 2u);
    EXPECT_THAT(mLog.Lines()[0], testing::EndsWith(" - Signal\r\n"));
    EXPECT_THAT(mLog.Lines()[1],
                testing::MatchesRegex("Failed to get signal of type .*OtherMessage for Switch Fabric Message 20\n"));
    Send(std::string("\x14\x07\x00\x00\x00", 5));
    RunUntilTimes(1);
    EXPECT_FALSE(called);
}

TEST_F(UDPDispatcherTest, ATakenPortIsNamed)
{
    try {
        UDPDispatcher second(mService, mDispatcher.GetPort());
        FAIL() << "two dispatchers on one port";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), testing::HasSubstr("UDP port " + std::to_string(mDispatcher.GetPort())));
    }
}

TEST_F(UDPDispatcherTest, NothingIsLoggedAndNothingFiresWhenItGoes)
{
    auto dispatcher = std::make_unique<UDPDispatcher>(mService, 0);
    dispatcher.reset();
    mService.poll();
    EXPECT_TRUE(mLog.Lines().empty());
}

TEST(FabricMessageTest, TimeOnTheWire)
{
    const NetworkTimeMessage message("\x99\x78\x56\x34\xF2");
    std::array<char, 5> bytes{};
    message.Serialise(bytes.data());
    EXPECT_EQ(message.GetSize(), 5u);
    EXPECT_THAT(bytes, ElementsAre('\x14', '\x78', '\x56', '\x34', '\xF2'));
    EXPECT_EQ(NetworkTimeMessage().GetTime(), 0u);
}

TEST(FabricMessageTest, BytesOfTheBase)
{
    OtherMessage message("\xC8\x02");
    std::vector<unsigned char> out;
    testing::internal::CaptureStdout();
    message.GetUDP(out);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "GetUDP Message Type 200\n");
    EXPECT_THAT(out, ElementsAre(0xC8, 0x02));
    EXPECT_EQ(message.mValidated, 1);
    EXPECT_EQ(message.GetSize(), 2u);

    NetworkTimeMessage bare;
    EXPECT_EQ(bare.FabricMessageBase::GetSize(), 64u);
}
