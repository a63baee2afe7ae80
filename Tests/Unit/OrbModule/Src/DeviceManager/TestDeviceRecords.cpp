#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/DeviceManager/CardModels.h"
#include "OrbModule/Inc/DeviceManager/DeviceInfoStorage.h"
#include "OrbModule/Inc/DeviceManager/NeighbourRules.h"
#include "Tests/Support/LogRecorder.h"

#include <gtest/gtest.h>

#include <sstream>

using namespace K2Heartbeat;

namespace {

constexpr std::uint32_t Far = 0x00300005;

std::shared_ptr<const IoInfo> Box(std::uint32_t hid, std::size_t nameLength = 0)
{
    return std::make_shared<const IoInfo>(hid, std::uint8_t{0}, IoInfo::SlotNames{std::string(nameLength, 'x')});
}

} // namespace

// The rest of the rules is seen in the scenes.
TEST(NeighbourRules, AStreamTakesThePlaceOfADeviceOnThePrimaryAndOfOneThatHasGoneOnBoth)
{
    using NeighbourRules::Neighbour;
    constexpr LinkReport Link{1, 3, 2, Hid(0x00200001), K2_MODULAR_TYPE};
    constexpr NeighbourRules::Local Other{Hid(0x00210001), K2_MODULAR_TYPE, false};
    constexpr NeighbourRules::Local Gone{Hid(0x00210001), K2_NO_TYPE, false};
    constexpr LinkReport Lost{0, 3, 2, Link.hid, K2_MODULAR_TYPE};
    EXPECT_EQ(NeighbourRules::OfStream(Routing::PRIMARY_PORT, Lost, Other), Neighbour::Unknown);
    EXPECT_EQ(NeighbourRules::OfStream(Routing::PRIMARY_PORT, Link, Other), Neighbour::Next);
    EXPECT_EQ(NeighbourRules::OfStream(Routing::SECONDARY_PORT, Link, Other), Neighbour::Refused);
    EXPECT_EQ(NeighbourRules::OfStream(Routing::SECONDARY_PORT, Link, Gone), Neighbour::Next);
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
    const auto lines = log.Lines();
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.find("Store of device") == 0; }),
              1);
}
