#include "OrbModule/Inc/Patching/PatchStore.h"

#include "Audit/Audit.h"

#include <gtest/gtest.h>

#include <sstream>

using Routing::GigeAndSlots;

namespace {

constexpr Hid BoxA = 0xC0010001;
constexpr Hid BoxB = 0xC0020001;
constexpr IoPort In(BoxA, 1, 1);
constexpr Routing::PortsEnum Pri = Routing::PRIMARY_PORT;

IoPort Out(std::size_t number)
{
    return IoPort(Hid(static_cast<std::uint32_t>(BoxB + (number >> 12))), 2, static_cast<std::uint32_t>(number));
}

} // namespace

TEST(PatchStore, OnlyWhatWasSentOnALinkSurvivesRemoveUnsent)
{
    PatchStore store;
    const std::tuple<UINT8GIGEPORT, Korvo::PatchState, bool> cases[] = {
        {1, Korvo::PatchSuccess, true},  {2, Korvo::PatchReserved, true}, {1, Korvo::PatchSent, true},
        {0, Korvo::PatchSuccess, false}, {3, Korvo::PatchSuccess, false}, {1, Korvo::PatchNotSent, false}};
    std::size_t number = 0;
    for (const auto& [port, state, stays] : cases) {
        store.StorePatch(In, Out(number));
        store.UpdatePatch(Out(number++), ToPortsEnum(port), state);
    }
    store.RemoveUnsent();
    while (number-- > 0)
        EXPECT_EQ(store.GetPatchState(Out(number), Pri).has_value(), std::get<bool>(cases[number])) << number;
}

TEST(PatchStore, PrintsAPatchAsTheShellShowsItAndDropsASwapTargetThatNoLinkNeeds)
{
    OrbPatchInfo patch(In, Out(2));
    patch.UpdatePatch(Pri, Korvo::PatchSuccess, {1, {3}});
    patch.SetSwapTarget({0, {9, 10}});
    std::ostringstream out;
    out << patch;
    EXPECT_EQ(out.str(), " Src HID:3221291009(192.1:1 ), Style:1(Input), Idx:1 "
                         "\n\t\t\tDst HID:3221356545(192.2:1 ), Style:2(Output), Idx:2 "
                         "\n\t\t\tPri Patch Success \n\t\t\tSec Patch Not Sent "
                         "\n\t\t\tPri  GigE:TDM Pri Korvo 3 \n\t\t\tSec  GigE:TDM UNKNOWN 255 "
                         "\n\t\t\tSwap GigE:TDM ORB PORT 9 10 ");
    EXPECT_EQ(patch.GetLink(ToPortsEnum(3)), GigeAndSlots{});
    patch.UpdatePatch(Pri, Korvo::PatchSent);
    EXPECT_EQ(patch.GetSwapTarget(), GigeAndSlots{});
}

TEST(PatchStore, WhatPeersCanMakeItHoldHasALimit)
{
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 0);
    PatchStore store;
    const IoPort last = Out(PatchStore::MaxPatches);
    for (std::size_t i = 0; i < PatchStore::MaxPatches; ++i)
        ASSERT_TRUE(store.StorePatch(In, Out(i)));
    EXPECT_FALSE(store.StorePatch(In, last));
    EXPECT_TRUE(store.StorePatch(last, Out(5))) << "it is stored already";
    EXPECT_EQ(store.Find(Out(5))->GetSource(), In) << "and keeps its first source";
    store.RemovePatch(Out(5));
    EXPECT_TRUE(store.StorePatch(In, last));

    const GigeAndSlots link{1, std::vector<std::uint32_t>(512, 7)};
    for (std::size_t i = 10; i < 10 + PatchStore::MaxSlots / 512; ++i)
        store.UpdatePatch(Out(i), Pri, Korvo::PatchSuccess, link);
    store.UpdatePatch(Out(11), Pri, Korvo::PatchReserved);
    store.UpdatePatch(last, Pri, Korvo::PatchSuccess, link);
    EXPECT_EQ(store.GetPatchLink(last, Pri), GigeAndSlots{});
    EXPECT_EQ(store.GetPatchState(last, Pri), Korvo::PatchSuccess);
    store.RemovePatch(Out(10));
    store.UpdatePatch(last, Pri, Korvo::PatchSuccess, link);
    EXPECT_EQ(store.GetPatchLink(last, Pri), link);
    store.UpdatePatch(BoxA, Pri, Korvo::PatchNotSent);
    store.RemoveUnsent();
    EXPECT_EQ(store.Find(Out(11)), nullptr);
    EXPECT_EQ(store.Find(last), nullptr);
}
