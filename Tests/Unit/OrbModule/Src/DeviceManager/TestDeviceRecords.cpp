#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"

#include <cstdio>

namespace {

/// Keeps the text of what is logged while it lives, with a bar for each stamp.
class LogCapture : public Audit
{
public:
    explicit LogCapture(std::string& text) : mText(text) {}

    void Write(const char* format, MessageArgs args) override { Append("", format, args); }
    void WriteStamped(std::uint32_t, const char* format, MessageArgs args) override { Append("|", format, args); }

private:
    void Append(const char* stamp, const char* format, MessageArgs args)
    {
        char line[4096];
        std::vsnprintf(line, sizeof(line), format, args.list);
        mText += std::string(stamp) + line;
    }
    std::string& mText;
};

class RecordTest : public DirectoryTest
{
protected:
    RecordTest() { Audit::SetInstance(new LogCapture(mLog)); }
    ~RecordTest() override { Audit::SetInstance(nullptr); }
    std::string TakeLog() { return std::exchange(mLog, {}); }

    static std::shared_ptr<const IoInfo> Box(std::uint32_t hid, std::size_t nameLength = 0)
    {
        IoInfo::SlotNames names;
        names[0] = std::string(nameLength, 'x');
        return std::make_shared<const IoInfo>(hid, std::uint8_t{0}, names);
    }

    std::string mLog;
};

} // namespace

TEST_F(RecordTest, ListingsShowTheDevicesOfTheirKind)
{
    KnowSelf();
    PlugRouter(1, K2_HUB_TYPE);
    Report(1, Behind, BehindIp);
    Take();
    TakeLog();
    mDevices.ShowDevices(true);
    EXPECT_EQ(TakeLog(), "|Local devices:\n|Remote devices:\n"
                         "|Hid: 0.18:1 , Type: Modular \n\tPri Rem GigE: H0  Pri Rem Address: 1.63.1.0 Link true\n"
                         "\tSec Rem GigE: H0  Sec Rem Address: 1.63.1.0 Link true\n"
                         "\tOwning ROuter 0.18:8000  SR 44.1kHz:44.1kHz \n"
                         "|Hid: 0.48:5 , Type: FixedFormat \n\tPri Rem GigE: H3  Pri Rem Address: 10.20.30.40 "
                         "Link true\n\tSec Rem GigE: UNKNOWN_PORT  Sec Rem Address: 0.0.0.0 Link false\n"
                         "\tOwning ROuter 0.48:8000  SR 44.1kHz:44.1kHz \n");
    mDevices.ShowDevices(false);
    EXPECT_EQ(TakeLog(), "|Local devices:\n|KorvoHub 0.48:8000 \n\tPri Rem Address: 0.32.0.254Pri Link true\n"
                         "\tSec Rem Address: 0.0.0.0 Sec Link false\n SR 48kHz:\n|Remote devices:\n"
                         "|Hid: 0.18:8000 , Type: OrbDsp\n\tPri Rem GigE: H0  Pri Rem Address: 1.63.1.0 Link true\n"
                         "\tSec Rem GigE: H0  Sec Rem Address: 1.63.1.0 Link true\n"
                         "\tOwning ROuter 0.18:8000  SR 48kHz:\n");
}

TEST_F(RecordTest, ThePortMapOfABoxIsListed)
{
    PlugBox(1);
    mDevices.ProcessIOCmd(std::make_shared<IoInfo>(BoxHid, 1, IoInfo::SlotNames{"QV1180"}), 1, Local);
    TakeLog();
    mDevices.ShowPortMap(BoxHid);
    const std::string log = TakeLog();
    EXPECT_NE(log.find("A11  -> 11\n|Outputs for device 0.32:1 :\nA0  -> 0\n"), std::string::npos) << log;
}

TEST_F(RecordTest, RatesWithoutEndAreCutBeforeTheyAreLogged)
{
    const RateList endless(1000, SampleRates::RATE_96K);
    mDevices.OnRemoteIoUpdate(std::make_shared<RemoteIoUpdate>(RemoteDeviceType::Hub, Behind, BehindIp, RouterHid,
                                                               SampleRates::RATE_48K, endless),
                              1, Local);
    const std::string log = TakeLog();
    EXPECT_NE(log.find("RemoteIoUpdate type is wrong"), std::string::npos);
    EXPECT_LT(log.size(), 1000u);
}

TEST_F(RecordTest, DescriptionsAreGivenByTheirClassAndOnlyWhenComplete)
{
    DeviceInfoStorage storage;
    EXPECT_EQ(storage.GetIoInfo(Behind), nullptr);
    storage.Emplace(Behind, K2_MODULAR_TYPE, Box(Behind), 7);
    EXPECT_EQ(storage.GetRouterInfo(Behind), nullptr) << "of another class";
    EXPECT_FALSE(storage.GetIoInfoCard(Behind));
    storage.Emplace(Behind, K2_FIXED_FORMAT_TYPE, Box(Behind), 0);
    EXPECT_NE(storage.GetIoInfo(Behind), nullptr);
    storage.Emplace(Behind, K2_MODULAR_TYPE, Box(Behind), 0xFF);
    EXPECT_EQ(storage.GetIoInfoCard(Behind)->size(), 3u);
}

TEST_F(RecordTest, DescriptionsMeetALimitOfDevicesAndOneOfBytes)
{
    DeviceInfoStorage storage({2, 2 * DeviceInfoStorage::CommandOverhead + 200});
    for (std::uint32_t hid = 1; hid <= 3; ++hid)
        storage.Emplace(hid, K2_FIXED_FORMAT_TYPE, Box(hid), 0);
    EXPECT_EQ(storage.Size(), 2u);
    storage.Emplace(1, K2_FIXED_FORMAT_TYPE, Box(1, 151), 0);
    EXPECT_EQ(storage.GetIoInfo(1)->GetSlots()[0].size(), 0u) << "176 bytes and 25 of the other";
    storage.Emplace(1, K2_FIXED_FORMAT_TYPE, Box(1, 150), 0);
    EXPECT_EQ(storage.GetIoInfo(1)->GetSlots()[0].size(), 150u) << "what it replaces does not count";
    storage.EraseDeviceInfo(1);
    storage.Emplace(3, K2_FIXED_FORMAT_TYPE, Box(3, 150), 0);
    EXPECT_NE(storage.GetIoInfo(3), nullptr) << "erased is free";
    const std::string log = TakeLog();
    EXPECT_EQ(log.find("Store of device descriptions is full"), log.rfind("Store of device descriptions is full"));
}
