#include "OrbModule/Inc/UDPDispatcher/UDPDispatcher.h"

#include "OrbModule/Inc/UDPDispatcher/NetworkTimeMessage.h"
#include "Tests/Support/LogRecorder.h"

#include <boost/asio.hpp>
#include <gmock/gmock.h>

using boost::asio::ip::udp;
using testing::ElementsAre;

namespace {

struct Other : FabricMessageBase
{
    static constexpr std::size_t SIZE = 2;
    explicit Other(const char* bytes) { mData.assign(bytes, bytes + SIZE); }
    void Validate() override { mData.clear(); }
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
    void SendTime(char time) { Send(std::string("\x14", 1) + time + std::string(3, '\0')); }
    void RunUntil(const std::function<bool()>& condition)
    {
        while (!condition() && mService.run_one_for(std::chrono::seconds(10)) > 0) {
        }
    }
    /// The datagrams arrive in order, so the last of these shows that all earlier ones have arrived.
    template <class... Times>
    void ExpectTimes(Times... times)
    {
        RunUntil([this] { return mTimes.size() >= sizeof...(Times); });
        EXPECT_THAT(std::exchange(mTimes, {}), ElementsAre(times...));
    }

    boost::asio::io_service mService;
    udp::socket mSender{mService, udp::v4()};
    /// The dispatcher's socket gets the lowest that is free.
    const int mDescriptor = [this] {
        const int lowest = ::dup(mSender.native_handle());
        ::close(lowest);
        return lowest;
    }();
    UDPDispatcher mDispatcher{mService, 0};
    std::vector<std::uint32_t> mTimes;
    LogRecorder mLog;
};

} // namespace

TEST_F(UDPDispatcherTest, OnlyWholeMessagesOfAKnownNumberGetThroughAndReceptionGoesOn)
{
    // One that ends while it receives says nothing.
    std::make_unique<UDPDispatcher>(mService, 0).reset();
    Send("\x14\x78\x56\x34\xF2");
    Send("");
    Send("\x15\x01\x02\x03\x04");
    Send("\x14\x01\x02\x03");
    Send(std::string(2000, '\x14'));
    Send(std::string("\x14\x01\x00\x00\x00\xFF", 6));
    ExpectTimes(0xF2345678u, 0x14141414u, 1u);
    EXPECT_TRUE(mLog.Lines().empty());
}

TEST_F(UDPDispatcherTest, AFaultThatLastsIsOneLineAndReceptionGoesOn)
{
    const auto faults = [this] { return mLog.Count("UDPDispatcher::ReceivePacket Error Connection refused\n"); };
    const auto fail = [this] {
        const int on = 1;
        setsockopt(mDescriptor, IPPROTO_IP, IP_RECVERR, &on, sizeof on);
        const udp::endpoint nobody(boost::asio::ip::address_v4::loopback(), 9);
        ::sendto(mDescriptor, "x", 1, 0, nobody.data(), static_cast<socklen_t>(nobody.size()));
    };
    for (std::size_t fault = 1; fault <= 2; ++fault) {
        fail();
        RunUntil([&] { return faults() >= fault; });
        fail();
        SendTime(1);
        ExpectTimes(1u);
        EXPECT_EQ(faults(), fault);
    }
}

TEST_F(UDPDispatcherTest, EachSlotOfANumberIsCalledAndOneThatThrowsDoesNotEndReception)
{
    std::vector<std::uint32_t> seen;
    mDispatcher.Register<SwitchFabric::NetworkTimeMessage, NetworkTimeMessage>(
        [&](const std::shared_ptr<const NetworkTimeMessage>& message) {
            seen.push_back(message->GetTime());
            if (message->GetTime() == 1) throw std::runtime_error("a slot");
            if (message->GetTime() == 2) throw message->GetTime();
        });
    mDispatcher.Register<SwitchFabric::NetworkTimeMessage, Other>([](const auto&) { FAIL(); });
    EXPECT_TRUE(mLog.WaitFor("Failed to get signal of type "));
    SendTime(1);
    SendTime(2);
    SendTime(3);
    ExpectTimes(1u, 2u, 3u);
    EXPECT_THAT(seen, ElementsAre(1u, 2u, 3u));
    EXPECT_TRUE(mLog.Has("UDPDispatcher::ReceivePacket Error a slot\n"));
    EXPECT_TRUE(mLog.Has("UDPDispatcher::ReceivePacket Error unknown exception\n"));
}

TEST(FabricMessageTest, BytesOfAMessage)
{
    const NetworkTimeMessage time("\x99\x78\x56\x34\xF2");
    Other other("\x07\x08");
    std::string bytes(time.GetSize() + other.GetSize(), '_');
    time.Serialise(&bytes[0]);
    other.Serialise(&bytes[5]);
    EXPECT_EQ(bytes, "\x14\x78\x56\x34\xF2\x07\x08");
    std::vector<unsigned char> out;
    testing::internal::CaptureStdout();
    other.GetUDP(out);
    EXPECT_THAT(out, ElementsAre(7, 8));
    other.GetUDP(out);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "GetUDP Message Type 7\nGetUDP Message Type 0\n");
    EXPECT_EQ(other.GetSize(), 64u) << "without a body";
}
