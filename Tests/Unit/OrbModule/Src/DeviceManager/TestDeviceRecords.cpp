#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/DeviceManager/CardModels.h"
#include "OrbModule/Inc/DeviceManager/DeviceInfoStorage.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

#include <sstream>

using namespace K2Heartbeat;
using testing::Contains;
using testing::HasSubstr;

namespace {

constexpr std::uint32_t Far = 0x00300005;

std::shared_ptr<const IoInfo> Box(std::uint32_t hid, std::size_t nameLength = 0)
{
    return std::make_shared<const IoInfo>(hid, std::uint8_t{0}, IoInfo::SlotNames{std::string(nameLength, 'x')});
}

} // namespace

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
    DeviceInfoStorage storage({2, 4 * DeviceInfoStorage::CommandOverhead});
    for (std::uint32_t hid = 1; hid <= 3; ++hid)
        storage.Emplace(hid, K2_FIXED_FORMAT_TYPE, Box(hid), 0);
    EXPECT_EQ(storage.GetIoInfo(3), nullptr);
    storage.Emplace(1, K2_FIXED_FORMAT_TYPE, Box(1, 463), 0);
    EXPECT_EQ(storage.GetIoInfo(1)->GetSlots()[0].size(), 0u) << "488 bytes and 25 of the other";
    storage.Emplace(1, K2_FIXED_FORMAT_TYPE, Box(1, 462), 0);
    EXPECT_EQ(storage.GetIoInfo(1)->GetSlots()[0].size(), 462u) << "what it replaces does not count";
    storage.EraseDeviceInfo(1);
    storage.Emplace(3, K2_FIXED_FORMAT_TYPE, Box(3, 462), 0);
    EXPECT_NE(storage.GetIoInfo(3), nullptr) << "erased is free";
    EXPECT_THAT(log.Lines(), Contains(HasSubstr("Store of device descriptions is full")).Times(1));
    EXPECT_THAT(log.Lines(), Contains(HasSubstr("(2 devices, 562 bytes), ignoring the description of device 0x3(3)")));
}
