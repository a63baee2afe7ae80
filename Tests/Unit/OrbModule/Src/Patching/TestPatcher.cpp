#include "Tests/Unit/OrbModule/Src/Patching/PatchBoard.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <stdexcept>

using testing::HasSubstr;

namespace {

using Feeds = PatchBoard::Feeds;

/// Whether the operation writes the table once, which makes these routes. A write starts with the table's address.
void ExpectRoutesByOneWrite(PatchBoard& board, const std::function<void()>& operation, const Feeds& routes)
{
    board.GetFpga().StartRecord();
    operation();
    const auto record = board.GetFpga().GetRecord();
    EXPECT_EQ(std::count_if(record.begin(), record.end(),
                            [](const auto& access) {
                                return access.block == "0003" && access.offset == 0x24 && access.value == 0xC0000;
                            }),
              1);
    EXPECT_TRUE(board.WaitUntil([&] { return board.GetFeeds() == routes; }));
    EXPECT_EQ(board.GetFeeds(), routes);
}

} // namespace

TEST(Patcher, EachOperationIsOneTableWrite)
{
    PatchBoard board(7);
    Patcher& patcher = board.GetPatcher();
    EXPECT_EQ(patcher.GetClockSources().at(1)->GetId(), 1u);
    const LinkPatch patch{{0, {100, 101, 102}}, {2, {511, 510, 509}}};
    ExpectRoutesByOneWrite(board, [&] { patcher.ProcessPatchUnpatch(patch, true); },
                           {{{2, 511}, {0, 100}}, {{2, 510}, {0, 101}}, {{2, 509}, {0, 102}}});
    // A source is not needed to silence.
    ExpectRoutesByOneWrite(board,
                           [&] {
                               patcher.ProcessUnpatches({{{}, {2, {511}}}, {{}, {2, {509}}}});
                           },
                           {{{2, 510}, {0, 101}}});
    ExpectRoutesByOneWrite(board, [&] { patcher.RemoveAllPatches(); }, {});
}

TEST(Patcher, WhatIsOutOfRangeIsLeftOut)
{
    PatchBoard board;
    const std::pair<LinkPatch, bool> cases[] = {
        {{{1, {1, 512, 3, INVALID_TDM_SLOT, 5}}, {0, {11, 12, 513, 14, 15}}}, true},
        {{{1, {7, 8, 9}}, {2, {20}}}, true},
        {{{2, {31}}, {2, {30, 32}}}, true},
        {{{3, {1}}, {2, {40}}}, true},
        {{{255, {}}, {255, {}}}, true},
        {{{1, {1}}, {3, {41}}}, true},
        {{{}, {0, {600, INVALID_TDM_SLOT}}}, false},
        {{{}, {17, {1}}}, false}};
    for (const auto& [patch, make] : cases)
        board.GetPatcher().ProcessPatchUnpatch(patch, make);
    const Feeds routes{{{0, 11}, {1, 1}}, {{0, 15}, {1, 5}}, {{2, 20}, {1, 7}}, {{2, 30}, {2, 31}}};
    EXPECT_TRUE(board.WaitUntil([&] { return board.GetFeeds() == routes; }));
    EXPECT_EQ(board.GetFeeds(), routes);
}

TEST(Patcher, AnAddressThatTheEngineCannotTakeEndsTheStartWithAText)
{
    const std::tuple<int, int, int, const char*> cases[] = {
        {0, 1, 2, "address 0 of the bulk audio block is not 1 to 7"},
        {3, 1, 8, "address 8 of k2link1 is not 1 to 7"},
        {3, 3, 2, "address 3 of k2link0 is that of another endpoint"}};
    for (const auto& [bulk, link0, link1, text] : cases) {
        try {
            PatchBoard board(static_cast<std::uint8_t>(bulk), static_cast<std::uint8_t>(link0),
                             static_cast<std::uint8_t>(link1));
            ADD_FAILURE() << "started with " << text;
        } catch (const std::runtime_error& error) {
            EXPECT_THAT(error.what(), HasSubstr(text));
        }
    }
}
