#include "OrbModule/Inc/DeviceManager/CardModels.h"
#include "OrbModule/Inc/DeviceManager/OsRoutes.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include <cstdio>
#include <sstream>

using namespace K2Heartbeat;

namespace {

/// Keeps what is logged without a stamp.
class PlainLog : public Audit
{
public:
    explicit PlainLog(Lines& lines) : mLines(lines) {}
    void Write(const char* format, MessageArgs args) override
    {
        char line[100];
        std::vsnprintf(line, sizeof(line), format, args.list);
        mLines.push_back(line);
    }

private:
    Lines& mLines;
};

constexpr std::uint32_t Far = 0x00300005;

std::shared_ptr<const IoInfo> Box(std::uint32_t hid, std::size_t nameLength = 0)
{
    return std::make_shared<const IoInfo>(hid, std::uint8_t{0}, IoInfo::SlotNames{std::string(nameLength, 'x')});
}

} // namespace

TEST(RecordTest, ListingsShowTheDevicesOfTheirKind)
{
    Directory directory;
    for (const char* event : {"self", "hub 1", "io 1 far 10.20.30.40"})
        directory.Play(event);
    const auto list = [&](bool io) {
        const LogRecorder log;
        directory->ShowDevices(io);
        return log.Lines();
    };
    EXPECT_EQ(list(true),
              (Lines{"Local devices:\n", "Remote devices:\n",
                     "Hid: 0.18:1 , Type: Modular \n\tPri Rem GigE: H0  Pri Rem Address: 1.63.1.0 Link true\n"
                     "\tSec Rem GigE: H0  Sec Rem Address: 1.63.1.0 Link true\n"
                     "\tOwning ROuter 0.18:8000  SR 44.1kHz:44.1kHz \n",
                     "Hid: 0.48:5 , Type: FixedFormat \n\tPri Rem GigE: H3  Pri Rem Address: 10.20.30.40 "
                     "Link true\n\tSec Rem GigE: UNKNOWN_PORT  Sec Rem Address: 0.0.0.0 Link false\n"
                     "\tOwning ROuter 0.48:8000  SR 44.1kHz:44.1kHz \n"}));
    EXPECT_EQ(list(false),
              (Lines{"Local devices:\n",
                     "KorvoHub 0.48:8000 \n\tPri Rem Address: 0.32.0.254Pri Link true\n"
                     "\tSec Rem Address: 0.0.0.0 Sec Link false\n SR 48kHz:\n",
                     "Remote devices:\n",
                     "Hid: 0.18:8000 , Type: OrbDsp\n\tPri Rem GigE: H0  Pri Rem Address: 1.63.1.0 Link true\n"
                     "\tSec Rem GigE: H0  Sec Rem Address: 1.63.1.0 Link true\n"
                     "\tOwning ROuter 0.18:8000  SR 48kHz:\n"}));
}

TEST(RecordTest, ThePortMapOfABoxIsListed)
{
    Directory directory;
    directory.Play("plug 1");
    directory.Play("box 1 box QV1180");
    Lines lines;
    Audit::SetInstance(new PlainLog(lines));
    directory->ShowPortMap(Directory::Names().HidOf("box"));
    Audit::SetInstance(nullptr);
    ASSERT_EQ(lines.size(), 16u);
    EXPECT_EQ(lines[11] + lines[12], "A11  -> 11\nA0  -> 0\n");
}

TEST(CardModels, PortsAndStrides)
{
    std::ostringstream rows;
    for (const char* code : {"QV1180", "QV1240", "QV1320", "QV1410", "QV1530", "QV1660", "QV1790", "XX0000"}) {
        const CardModel card = GetCardModel(code, false);
        rows << card.inputs << ' ' << card.outputs << ' ' << card.inputStride << ' ' << card.outputStride << ", ";
    }
    EXPECT_EQ(rows.str(), "12 4 128 32, 12 4 128 32, 16 16 128 32, 8 8 128 32, 8 8 128 32, 64 64 128 64, "
                          "256 256 256 256, 0 0 128 32, ");
}

TEST(RecordTest, RoutesAreLoggedWithTheirCommands)
{
    const LogRecorder log{DebugFeature::RouterAudioRoute};
    const Hid self = Directory::Names().HidOf("self");
    OsRoutes routes([](const std::string&, const std::string&) { return 0; }, self);
    routes.AddSlaveLinkDataRoute(Hid(0x00308000), Side::Primary);
    routes.AddIoRoute(0x0A141E28, Routing::PRIMARY_PORT);
    routes.DeleteSlaveRoute(Hid(0x00308000));
    EXPECT_EQ(log.Lines(), (Lines{"AddSlaveLinkDataRoute route add -host 0.48.5.0 k2link0\n",
                                  "OS ROUTE ADD route add -net 10.20.30.0 netmask 255.255.255.0 k2link0\n",
                                  "OS ROUTE DEL CMD route del -net 0.48.0.0 netmask 255.255.0.0\n"}));
}

TEST(RecordTest, WhyACommandWasNotForwardedIsLogged)
{
    const LogRecorder log;
    Directory directory;
    const auto lineAfter = [&](const char* events) {
        std::istringstream list(events);
        for (std::string event; std::getline(list, event, ';');)
            directory.Play(event.substr(event.find_first_not_of(' ')));
        return log.Lines().back();
    };
    EXPECT_EQ(lineAfter("self; plug 1; gone 1; send 0 box"), "ForwardCmd No link to local device\r\n");
    EXPECT_EQ(lineAfter("hub 1; send 0 00300099"), "ForwardCmd No link to device INVALID_HID \n");
    EXPECT_EQ(lineAfter("ping"), "Send Ping To 0.48.5.0\n");
    EXPECT_EQ(lineAfter("gone 1; router 1; io 1 far 10.20.30.40; send 0 far"),
              "ForwardCmd When Connected to a network.....\r\n");
}

TEST(RecordTest, DescriptionsAreGivenByTheirClassAndOnlyWhenComplete)
{
    DeviceInfoStorage storage;
    EXPECT_EQ(storage.GetIoInfo(Far), nullptr);
    storage.Emplace(Far, K2_MODULAR_TYPE, Box(Far), 7);
    EXPECT_EQ(storage.GetRouterInfo(Far), nullptr) << "of another class";
    EXPECT_FALSE(storage.GetIoInfoCard(Far));
    storage.Emplace(Far, K2_FIXED_FORMAT_TYPE, Box(Far), 0);
    EXPECT_NE(storage.GetIoInfo(Far), nullptr);
    storage.Emplace(Far, K2_MODULAR_TYPE, Box(Far), 0xFF);
    EXPECT_EQ(storage.GetIoInfoCard(Far)->size(), 3u);
}

TEST(RecordTest, DescriptionsMeetALimitOfDevicesAndOneOfBytes)
{
    const LogRecorder log;
    DeviceInfoStorage storage({2, 2 * DeviceInfoStorage::CommandOverhead + 200});
    for (std::uint32_t hid = 1; hid <= 3; ++hid)
        storage.Emplace(hid, K2_FIXED_FORMAT_TYPE, Box(hid), 0);
    EXPECT_EQ(storage.GetIoInfo(3), nullptr);
    storage.Emplace(1, K2_FIXED_FORMAT_TYPE, Box(1, 151), 0);
    EXPECT_EQ(storage.GetIoInfo(1)->GetSlots()[0].size(), 0u) << "176 bytes and 25 of the other";
    storage.Emplace(1, K2_FIXED_FORMAT_TYPE, Box(1, 150), 0);
    EXPECT_EQ(storage.GetIoInfo(1)->GetSlots()[0].size(), 150u) << "what it replaces does not count";
    storage.EraseDeviceInfo(1);
    storage.Emplace(3, K2_FIXED_FORMAT_TYPE, Box(3, 150), 0);
    EXPECT_NE(storage.GetIoInfo(3), nullptr) << "erased is free";
    const Lines lines = log.Lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find("Store of device") == 0; }),
              1);
}
