#include "OrbModule/Inc/Patching/PatchStore.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/PortBitmapCmd.h"

#include <gmock/gmock.h>

#include <sstream>

using Routing::GigeAndSlots;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

constexpr Hid BoxA = 0xC0010001;
constexpr Hid BoxB = 0xC0020001;
constexpr Hid BoxC = 0xC0030001;

IoPort In(Hid hid, std::uint32_t index)
{
    return IoPort(hid, 1, index);
}
IoPort Out(Hid hid, std::uint32_t index)
{
    return IoPort(hid, 2, index);
}

class PatchStoreTest : public testing::Test
{
protected:
    std::vector<IoPort> DestsOf(Hid hid, UINT8GIGEPORT port, Korvo::PatchState state)
    {
        std::vector<OrbPatchInfo*> patches;
        mStore.GetPatches(hid, port, state, patches);
        std::vector<IoPort> dests;
        for (const OrbPatchInfo* patch : patches)
            dests.push_back(patch->GetDest());
        return dests;
    }

    PatchStore mStore;
};

} // namespace

TEST_F(PatchStoreTest, ADestinationKeepsItsFirstSource)
{
    EXPECT_TRUE(mStore.StorePatch(In(BoxA, 1), Out(BoxB, 1)));
    EXPECT_TRUE(mStore.StorePatch(In(BoxC, 1), Out(BoxB, 1)));
    EXPECT_THAT(DestsOf(BoxA, 1, Korvo::PatchNotSent), ElementsAre(Out(BoxB, 1)));
    EXPECT_THAT(DestsOf(BoxC, 1, Korvo::PatchNotSent), IsEmpty());
}

TEST_F(PatchStoreTest, ADeviceIsFoundAtEitherEndAndInEveryState)
{
    mStore.StorePatch(In(BoxA, 1), Out(BoxB, 1));
    mStore.StorePatch(In(BoxC, 1), Out(BoxA, 1));
    mStore.StorePatch(In(BoxA, 2), Out(BoxA, 2));
    mStore.StorePatch(In(BoxC, 2), Out(BoxB, 2));
    mStore.UpdatePatch(Out(BoxA, 2), 2, Korvo::PatchSent);
    EXPECT_THAT(DestsOf(BoxA, 2, Korvo::PatchNotSent), ElementsAre(Out(BoxB, 1), Out(BoxA, 1)));
    EXPECT_THAT(DestsOf(BoxA, 1, Korvo::PatchNotSent), ElementsAre(Out(BoxB, 1), Out(BoxA, 1), Out(BoxA, 2)));
    EXPECT_THAT(DestsOf(BoxA, 2, Korvo::PatchSent), ElementsAre(Out(BoxA, 2)));

    mStore.UpdatePatch(Out(BoxB, 1), 2, Korvo::PatchSuccess, GigeAndSlots{2, {5}});
    mStore.UpdatePatch(BoxA, 2, Korvo::PatchNotSent);
    EXPECT_THAT(DestsOf(BoxA, 2, Korvo::PatchNotSent), SizeIs(3));
    EXPECT_EQ(mStore.GetPatchLink(Out(BoxB, 1), 2), GigeAndSlots{}) << "the link is to be emptied with the state";

    mStore.RemovePatch(Out(BoxB, 1));
    EXPECT_THAT(DestsOf(BoxA, 1, Korvo::PatchNotSent), ElementsAre(Out(BoxA, 1), Out(BoxA, 2)));
    EXPECT_THAT(DestsOf(BoxB, 1, Korvo::PatchNotSent), ElementsAre(Out(BoxB, 2)));
    EXPECT_EQ(mStore.GetPatchState(Out(BoxB, 1), 1), std::nullopt);
}

TEST_F(PatchStoreTest, OnlyWhatStandsOnALinkSurvivesRemoveUnsent)
{
    const struct
    {
        UINT8GIGEPORT port;
        Korvo::PatchState state;
        bool stays;
    } cases[] = {{1, Korvo::PatchSuccess, true},  {2, Korvo::PatchReserved, true}, {1, Korvo::PatchSent, true},
                 {0, Korvo::PatchSuccess, false}, {3, Korvo::PatchSuccess, false}, {1, Korvo::PatchNotSent, false}};
    std::uint32_t index = 0;
    for (const auto& c : cases) {
        mStore.StorePatch(In(BoxA, index), Out(BoxB, index));
        mStore.UpdatePatch(Out(BoxB, index++), c.port, c.state);
    }
    mStore.RemoveUnsent();
    index = 0;
    for (const auto& c : cases) {
        EXPECT_EQ(mStore.GetPatchState(Out(BoxB, index), 1).has_value(), c.stays) << index;
        ++index;
    }
    EXPECT_THAT(DestsOf(BoxA, 2, Korvo::PatchNotSent), ElementsAre(Out(BoxB, 0), Out(BoxB, 2)));
}

TEST_F(PatchStoreTest, UnknownDestinationsChangeNothing)
{
    mStore.UpdatePatch(Out(BoxB, 1), 1, Korvo::PatchSent);
    mStore.UpdatePatch(Out(BoxB, 1), 1, Korvo::PatchSent, GigeAndSlots{1, {1}});
    mStore.UpdatePatch(Out(BoxB, 1), 1, Korvo::PatchSent, GigeAndSlots{1, {1}}, GigeAndSlots{0, {1}});
    mStore.RemovePatch(Out(BoxB, 1));
    EXPECT_EQ(mStore.GetPatchState(Out(BoxB, 1), 1), std::nullopt);
    EXPECT_EQ(mStore.GetPatchLink(Out(BoxB, 1), 1), std::nullopt);
    EXPECT_EQ(mStore.GetCount(), 0u);
}

TEST_F(PatchStoreTest, BitmapCommandsTurnWhatStandsAsMade)
{
    mStore.StorePatch(In(BoxA, 1), Out(BoxB, 7));
    mStore.StorePatch(In(BoxA, 2), Out(BoxB, 5));
    mStore.StorePatch(In(BoxA, 3), Out(BoxC, 1));
    mStore.StorePatch(In(BoxA, 4), Out(BoxC, 2));
    for (const IoPort& dest : {Out(BoxB, 7), Out(BoxB, 5), Out(BoxC, 1)}) {
        mStore.UpdatePatch(dest, 2, Korvo::PatchSuccess);
    }
    PatchStore::BitmapCommands commands;
    mStore.GetBitmapCommands(BoxA, 2, commands);
    ASSERT_THAT(commands, SizeIs(2));
    std::vector<std::uint16_t> indices;
    for (const auto& port : commands[BoxB]->GetEntries()) {
        indices.push_back(port.first);
        EXPECT_EQ(port.second.word, 0xFFFFFFFF);
        EXPECT_TRUE(port.second.secondary);
    }
    EXPECT_THAT(indices, ElementsAre(5, 7));
    EXPECT_THAT(commands[BoxC]->GetEntries(), SizeIs(1));
}

TEST_F(PatchStoreTest, PrintsAPatchAsTheShellShowsIt)
{
    OrbPatchInfo patch(In(BoxA, 1), Out(BoxB, 2));
    patch.UpdatePatch(1, Korvo::PatchSuccess, {1, {3}});
    patch.SetSwapTarget({0, {9, 10}});
    std::ostringstream out;
    out << patch;
    EXPECT_EQ(out.str(), " Src HID:3221291009(192.1:1 ), Style:1(Input), Idx:1 "
                         "\n\t\t\tDst HID:3221356545(192.2:1 ), Style:2(Output), Idx:2 "
                         "\n\t\t\tPri Patch Success \n\t\t\tSec Patch Not Sent "
                         "\n\t\t\tPri  GigE:TDM Pri Korvo 3 \n\t\t\tSec  GigE:TDM UNKNOWN 255 "
                         "\n\t\t\tSwap GigE:TDM ORB PORT 9 10 ");
}

TEST_F(PatchStoreTest, WhatPeersCanMakeItHoldHasALimit)
{
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 0);
    const auto dest = [](std::size_t number) {
        return Out(Hid(static_cast<std::uint32_t>(number >> 12)), static_cast<std::uint32_t>(number & 0xFFF));
    };
    for (std::size_t i = 0; i < PatchStore::MaxPatches; ++i)
        ASSERT_TRUE(mStore.StorePatch(In(BoxA, 1), dest(i)));
    EXPECT_FALSE(mStore.StorePatch(In(BoxA, 1), Out(BoxB, 1)));
    EXPECT_TRUE(mStore.StorePatch(In(BoxA, 1), dest(5))) << "it is stored already";
    mStore.RemovePatch(dest(5));
    EXPECT_TRUE(mStore.StorePatch(In(BoxA, 1), Out(BoxB, 1)));

    const GigeAndSlots link{1, std::vector<std::uint32_t>(512, 7)};
    for (std::size_t i = 10; i < 10 + PatchStore::MaxSlots / 512; ++i) {
        mStore.UpdatePatch(dest(i), 1, Korvo::PatchSuccess, link);
    }
    mStore.UpdatePatch(Out(BoxB, 1), 1, Korvo::PatchSuccess, link);
    EXPECT_EQ(mStore.GetPatchLink(Out(BoxB, 1), 1), GigeAndSlots{});
    EXPECT_EQ(mStore.GetPatchState(Out(BoxB, 1), 1), Korvo::PatchSuccess);
    mStore.RemovePatch(dest(10));
    mStore.UpdatePatch(Out(BoxB, 1), 1, Korvo::PatchSuccess, link);
    EXPECT_EQ(mStore.GetPatchLink(Out(BoxB, 1), 1), link);
    mStore.UpdatePatch(BoxA, 1, Korvo::PatchNotSent);
    mStore.RemoveUnsent();
    EXPECT_EQ(mStore.GetCount(), 0u);
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 1);
}
