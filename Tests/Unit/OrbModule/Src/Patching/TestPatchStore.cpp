#include "OrbModule/Inc/Patching/PatchStore.h"

#include "Audit/Audit.h"

#include <gtest/gtest.h>

#include <sstream>

using Routing::GigeAndSlots;

namespace {

constexpr Hid BoxA = 0xC0010001;
constexpr Hid BoxB = 0xC0020001;
constexpr Routing::PortsEnum Pri = Routing::PRIMARY_PORT;

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
    PatchStore mStore;
};

} // namespace

TEST_F(PatchStoreTest, OnlyWhatWasSentOnALinkSurvivesRemoveUnsent)
{
    const struct
    {
        Routing::PortsEnum port;
        Korvo::PatchState state;
        bool stays;
    } cases[] = {{Pri, Korvo::PatchSuccess, true},
                 {Routing::SECONDARY_PORT, Korvo::PatchReserved, true},
                 {Pri, Korvo::PatchSent, true},
                 {Routing::ORB_PORT, Korvo::PatchSuccess, false},
                 {ToPortsEnum(3), Korvo::PatchSuccess, false},
                 {Pri, Korvo::PatchNotSent, false}};
    std::uint32_t index = 0;
    for (const auto& c : cases) {
        mStore.StorePatch(In(BoxA, index), Out(BoxB, index));
        mStore.UpdatePatch(Out(BoxB, index++), c.port, c.state);
    }
    mStore.RemoveUnsent();
    index = 0;
    for (const auto& c : cases) {
        EXPECT_EQ(mStore.GetPatchState(Out(BoxB, index), Pri).has_value(), c.stays) << index;
        ++index;
    }
}

TEST_F(PatchStoreTest, PrintsAPatchAsTheShellShowsIt)
{
    OrbPatchInfo patch(In(BoxA, 1), Out(BoxB, 2));
    patch.UpdatePatch(Pri, Korvo::PatchSuccess, {1, {3}});
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
    EXPECT_TRUE(mStore.StorePatch(In(BoxB, 1), dest(5))) << "it is stored already";
    EXPECT_EQ(mStore.Find(dest(5))->GetSource(), In(BoxA, 1)) << "and keeps its first source";
    mStore.RemovePatch(dest(5));
    EXPECT_TRUE(mStore.StorePatch(In(BoxA, 1), Out(BoxB, 1)));

    const GigeAndSlots link{1, std::vector<std::uint32_t>(512, 7)};
    for (std::size_t i = 10; i < 10 + PatchStore::MaxSlots / 512; ++i) {
        mStore.UpdatePatch(dest(i), Pri, Korvo::PatchSuccess, link);
    }
    mStore.UpdatePatch(Out(BoxB, 1), Pri, Korvo::PatchSuccess, link);
    EXPECT_EQ(mStore.GetPatchLink(Out(BoxB, 1), Pri), GigeAndSlots{});
    EXPECT_EQ(mStore.GetPatchState(Out(BoxB, 1), Pri), Korvo::PatchSuccess);
    mStore.RemovePatch(dest(10));
    mStore.UpdatePatch(Out(BoxB, 1), Pri, Korvo::PatchSuccess, link);
    EXPECT_EQ(mStore.GetPatchLink(Out(BoxB, 1), Pri), link);
    mStore.UpdatePatch(BoxA, Pri, Korvo::PatchNotSent);
    mStore.RemoveUnsent();
    EXPECT_EQ(mStore.Find(dest(11)), nullptr);
    EXPECT_EQ(mStore.Find(Out(BoxB, 1)), nullptr);
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 1);
}
