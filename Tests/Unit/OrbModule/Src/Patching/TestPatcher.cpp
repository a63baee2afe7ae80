#include "OrbModule/Inc/Patching/Patcher.h"

#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Core/DeviceRegistry.h"
#include "Simulation/Fpga/ProcessBoard.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"

#include <gmock/gmock.h>

#include <array>

using testing::ElementsAre;

namespace {

/// ADMA address and slot of a source, and those of the sink that it feeds.
using Feeds = std::vector<std::array<std::uint32_t, 4>>;

/// ADMA addresses of the bulk block and of both links.
using Addresses = std::array<std::uint8_t, 3>;

/// From the Patcher to the table that is active in the simulated FPGA, all of it real. The thread of the test is the
/// main thread: it serves the interrupts while it waits.
class PatcherTest : public testing::Test
{
protected:
    Patcher& Start(const Addresses& addresses)
    {
        mFpga.SetBulkAddress(addresses[0]);
        mFpga.SetSyncTime(std::chrono::microseconds{0});
        mFpga.StartRecord();
        mRegistry = std::make_unique<fsi::DeviceRegistry>();
        const auto manager = std::make_shared<audio::AudioDmaManager>(mAdma, mRegistry.get());
        mPatcher = std::make_unique<Patcher>(mService, mRegistry.get(), manager,
                                             [=](std::uint32_t link) { return addresses[link + 1]; });
        return *mPatcher;
    }
    /// How often the table was written since the last time, and what is in the active one, once that has had its time:
    /// in the order of the table, without what is silent.
    void Expect(int writes, const Feeds& expected)
    {
        // Each write starts with the address of the table.
        int written = 0;
        for (const auto& access : mFpga.GetRecord())
            written += access.block == "0003" && access.offset == 0x24 && access.value == 0xC0000;
        EXPECT_EQ(written, writes);
        Feeds feeds;
        const auto isActive = [&] {
            mAdma->DispatchInterrupts();
            feeds.clear();
            for (const std::uint32_t word : mFpga.GetActiveTable()) {
                if (word >> 12 != 0) feeds.push_back({word >> 21, word >> 12 & 0x1FF, word >> 9 & 7, word & 0x1FF});
            }
            return feeds == expected;
        };
        Await(isActive, [&] { mFpga.WaitForSyncs(mFpga.GetSyncs() + 1, std::chrono::milliseconds(10)); });
        EXPECT_EQ(feeds, expected);
        mFpga.StartRecord();
    }

    simulation::SimulatedFpga& mFpga = simulation::GetProcessBoard();
    boost::asio::io_service mService;
    const std::shared_ptr<audio::AudioDmaFsi> mAdma = std::make_shared<audio::AudioDmaFsi>();
    std::unique_ptr<fsi::DeviceRegistry> mRegistry;
    std::unique_ptr<Patcher> mPatcher;
};

} // namespace

TEST_F(PatcherTest, EachOperationIsOneTableWrite)
{
    Patcher& patcher = Start({7, 5, 3});
    Expect(1, {});
    const auto& clocks = patcher.GetClockSources();
    EXPECT_THAT(std::vector({clocks.at(0)->GetId(), clocks.at(1)->GetId(), clocks.at(2)->GetId()}),
                ElementsAre(4, 1, 2));
    patcher.ProcessPatchUnpatch({{0, {100, 101, 102}}, {2, {511, 510, 509}}}, true);
    Expect(1, {{7, 102, 3, 509}, {7, 101, 3, 510}, {7, 100, 3, 511}});
    patcher.ProcessUnpatches({{{}, {2, {511}}}, {{}, {2, {509}}}});
    Expect(1, {{7, 101, 3, 510}});
    patcher.ProcessPatchUnpatch({{1, {0}}, {0, {510}}}, true);
    Expect(1, {{5, 0, 7, 510}, {7, 101, 3, 510}});
    patcher.ProcessPatchUnpatch({{0, {510}}, {2, {510}}}, false);
    Expect(1, {{5, 0, 7, 510}});
    patcher.RemoveAllPatches();
    Expect(1, {});
}

TEST_F(PatcherTest, WhatIsOutOfRangeIsLeftOut)
{
    Patcher& patcher = Start({3, 1, 2});
    const std::pair<LinkPatch, bool> cases[] = {
        {{{1, {1, 512, 3, INVALID_TDM_SLOT, 5}}, {0, {11, 12, 513, 14, 15}}}, true},
        {{{1, {7, 8, 9}}, {2, {20}}}, true},
        {{{2, {31}}, {2, {30, 32}}}, true},
        {{{3, {1}}, {2, {40}}}, true},
        {{{255, {}}, {255, {}}}, true},
        {{{1, {1}}, {4, {41}}}, true},
        {{{}, {0, {600, 15}}}, false},
        {{{}, {17, {1}}}, false}};
    const LogRecorder log;
    for (const auto& [patch, make] : cases)
        patcher.ProcessPatchUnpatch(patch, make);
    Expect(9, {{1, 1, 3, 11}, {1, 7, 2, 20}, {2, 31, 2, 30}});
    EXPECT_THAT(log.Lines(), ElementsAre("Patcher slot out of range 512\n", "Patcher slot out of range 513\n",
                                         "Patcher slot out of range 4294967295\n", "Patcher port out of range 3\n",
                                         "Patcher port out of range 255\n", "Patcher port out of range 255\n",
                                         "Patcher port out of range 4\n", "Patcher slot out of range 600\n",
                                         "Patcher port out of range 17\n"));
}

TEST_F(PatcherTest, AnAddressThatTheEngineCannotTakeEndsTheStartWithAText)
{
    const std::string remedy =
        "see that the link driver is loaded and reports the address that the firmware gives this link";
    const std::pair<Addresses, std::string> cases[] = {
        {{0, 1, 2},
         "0 of the bulk audio block is not 1 to 7: load firmware that gives this block an address of its own"},
        {{3, 1, 8}, "8 of k2link1 is not 1 to 7: " + remedy},
        {{3, 3, 2}, "3 of k2link0 is that of another endpoint as well: " + remedy},
        {{3, 2, 2}, "2 of k2link1 is that of another endpoint as well: " + remedy}};
    for (const auto& [addresses, text] : cases) {
        const auto start = [this, addresses = addresses] { Start(addresses); };
        EXPECT_THAT(start, testing::ThrowsMessage<std::runtime_error>("ADMA endpoint address " + text));
    }
}
