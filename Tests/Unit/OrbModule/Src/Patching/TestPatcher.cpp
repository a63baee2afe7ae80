#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

using testing::HasSubstr;

namespace {

using Feed = PatchBoard::Feed;

Feed From(UINT8GIGEPORT port, std::uint32_t slot)
{
    return std::make_pair(port, slot);
}

/// Table writes since the record began: each starts with the address of the table.
std::ptrdiff_t CountTableWrites(const simulation::SimulatedFpga& fpga)
{
    const auto record = fpga.GetRecord();
    return std::count_if(record.begin(), record.end(), [](const auto& access) {
        return access.block == "0003" && access.offset == 0x24 && access.value == 0xC0000;
    });
}

} // namespace

TEST(Patcher, APatchAndADepartingDeviceAreOneTableWriteEach)
{
    PatchBoard board;
    board.GetFpga().StartRecord();
    LinkPatch patch{{0, {}}, {2, {}}};
    for (std::uint32_t i = 0; i < 8; ++i) {
        patch.source.slots.push_back(100 + i);
        patch.destination.slots.push_back(511 - i);
    }
    board.GetPatcher().ProcessPatchUnpatch(patch, true);
    EXPECT_EQ(CountTableWrites(board.GetFpga()), 1);
    ASSERT_TRUE(board.WaitUntil([&] { return board.GetFeed(2, 504) == From(0, 107); }));
    board.GetFpga().StartRecord();
    // A source is not needed to silence.
    board.GetPatcher().ProcessUnpatches({{{}, {2, {511}}}, {{}, {2, {504}}}});
    EXPECT_EQ(CountTableWrites(board.GetFpga()), 1);
    EXPECT_TRUE(board.WaitUntil([&] { return !board.GetFeed(2, 504) && !board.GetFeed(2, 511); }));
    EXPECT_EQ(board.GetFeed(2, 510), From(0, 101));
}

TEST(Patcher, WhatIsOutOfRangeIsLeftOut)
{
    PatchBoard board;
    Patcher& patcher = board.GetPatcher();
    patcher.ProcessPatchUnpatch({{1, {1, 512, 3, INVALID_TDM_SLOT, 5}}, {0, {11, 12, 513, 14, 15}}}, true);
    patcher.ProcessPatchUnpatch({{1, {7, 8, 9}}, {2, {20}}}, true);
    patcher.ProcessPatchUnpatch({{2, {31}}, {2, {30, 32}}}, true);
    patcher.ProcessPatchUnpatch({{3, {1}}, {2, {40}}}, true);
    patcher.ProcessPatchUnpatch({{255, {}}, {255, {}}}, true);
    patcher.ProcessPatchUnpatch({{1, {1}}, {3, {41}}}, true);
    patcher.ProcessPatchUnpatch({{}, {0, {600, INVALID_TDM_SLOT}}}, false);
    patcher.ProcessPatchUnpatch({{}, {17, {1}}}, false);
    patcher.ProcessPatchUnpatch({{1, {99}}, {2, {511}}}, true);
    ASSERT_TRUE(board.WaitUntil([&] { return board.GetFeed(2, 511) == From(1, 99); }));
    const auto table = board.GetFpga().GetActiveTable();
    EXPECT_EQ(std::count_if(table.begin(), table.end(), [](std::uint32_t word) { return (word >> 12) != 0; }), 5);
    EXPECT_EQ(board.GetFeed(0, 11), From(1, 1));
    EXPECT_EQ(board.GetFeed(0, 15), From(1, 5));
    EXPECT_EQ(board.GetFeed(2, 20), From(1, 7));
    EXPECT_EQ(board.GetFeed(2, 30), From(2, 31));
}

TEST(Patcher, AnAddressThatTheEngineCannotTakeEndsTheStartWithAText)
{
    const struct
    {
        std::uint8_t bulk, link0, link1;
        const char* text;
    } cases[] = {{0, 1, 2, "address 0 of the bulk audio block is not 1 to 7"},
                 {3, 1, 8, "address 8 of k2link1 is not 1 to 7"},
                 {3, 3, 2, "address 3 of k2link0 is that of another endpoint"}};
    for (const auto& c : cases) {
        try {
            PatchBoard board(c.bulk, [&](std::uint32_t link) { return link == 0 ? c.link0 : c.link1; });
            ADD_FAILURE() << "started with " << c.text;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(c.text));
        }
    }
}
