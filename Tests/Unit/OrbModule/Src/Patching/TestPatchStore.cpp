#include "OrbModule/Inc/Patching/PatchStore.h"

#include "Tests/Support/Joined.h"
#include "Tests/Support/LogRecorder.h"

#include <gtest/gtest.h>

using Routing::GigeAndSlots;

namespace {

constexpr Hid BoxA = 0xC0010001;
constexpr Hid BoxB = 0xC0020001;
constexpr IoPort In(BoxA, 1, 1);
constexpr Routing::PortsEnum Pri = Routing::PRIMARY_PORT;
constexpr Routing::PortsEnum Sec = Routing::SECONDARY_PORT;

IoPort Out(std::size_t number)
{
    return IoPort(Hid(static_cast<std::uint32_t>(BoxB + (number >> 12))), 2, static_cast<std::uint32_t>(number));
}

} // namespace

TEST(PatchStore, PrintsAPatchAsTheShellShowsItAndDropsASwapTargetThatNoLinkNeeds)
{
    const LogRecorder log;
    OrbPatchInfo patch(In, Out(2));
    patch.UpdatePatch(Pri, Korvo::PatchSuccess, {1, {3}});
    patch.SetSwapTarget({0, {9, 10}});
    patch.UpdatePatch(ToPortsEnum(3), Korvo::PatchSuccess);
    patch.UpdatePatch(ToPortsEnum(3), Korvo::PatchReserved, {1, {4}});
    EXPECT_EQ(Joined(patch), " Src HID:3221291009(192.1:1 ), Style:1(Input), Idx:1 "
                             "\n\t\t\tDst HID:3221356545(192.2:1 ), Style:2(Output), Idx:2 "
                             "\n\t\t\tPri Patch Success \n\t\t\tSec Patch Not Sent "
                             "\n\t\t\tPri  GigE:TDM Pri Korvo 3 \n\t\t\tSec  GigE:TDM UNKNOWN 255 "
                             "\n\t\t\tSwap GigE:TDM ORB PORT 9 10 |");
    EXPECT_EQ(patch.GetLink(ToPortsEnum(3)), GigeAndSlots{});
    EXPECT_EQ(log.Lines(), std::vector<std::string>({"UpdatePatch: Trying to update patch on invalid port 3 0x04\n",
                                                     "UpdatePatch: Trying to update patch on invalid port 3 0x05\n"}));
    EXPECT_TRUE(patch.Concerns(BoxA) && patch.Concerns(BoxB) && !patch.Concerns(Hid(7)));
    patch.UpdatePatch(Sec, Korvo::PatchSent);
    EXPECT_EQ(patch.GetSwapTarget().slots.size(), 2u) << "the primary link needs it";
    patch.UpdatePatch(Sec, Korvo::PatchReserved);
    patch.UpdatePatch(Pri, Korvo::PatchSent, {});
    EXPECT_EQ(patch.GetSwapTarget().slots.size(), 2u) << "the secondary link needs it";
    patch.UpdatePatch(Sec, Korvo::PatchSent);
    EXPECT_EQ(patch.GetSwapTarget(), GigeAndSlots{});
}

TEST(PatchStore, ThePatchesThatPeersCanMakeItHoldHaveALimit)
{
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 0);
    PatchStore store;
    const IoPort last = Out(65536);
    for (std::size_t i = 0; i < 65536; ++i)
        ASSERT_TRUE(store.StorePatch(In, Out(i)));
    EXPECT_FALSE(store.StorePatch(In, last));
    EXPECT_TRUE(store.StorePatch(last, Out(5))) << "it is stored already";
    EXPECT_EQ(store.Find(Out(5))->GetSource(), In) << "and keeps its first source";
    store.RemovePatch(Out(5));
    EXPECT_TRUE(store.StorePatch(In, last));
}

TEST(PatchStore, TheSlotsThatPeersCanMakeItHoldHaveALimit)
{
    const LogRecorder log;
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 0);
    PatchStore store;
    store.StorePatch(In, Out(1));
    store.StorePatch(In, Out(2));
    // What the destination holds on both links and as its swap target after the update.
    const auto update = [&](std::size_t dest, Routing::PortsEnum port, auto... slots) {
        const auto link = [](unsigned count) { return GigeAndSlots{1, std::vector<std::uint32_t>(count, 7)}; };
        store.UpdatePatch(Out(dest), port, Korvo::PatchSuccess, link(slots)...);
        const OrbPatchInfo& patch = *store.Find(Out(dest));
        return Joined(patch.GetLink(Pri).slots.size(), patch.GetLink(Sec).slots.size(),
                      patch.GetSwapTarget().slots.size());
    };
    EXPECT_EQ(update(1, Pri, 1048556, 10), "1048556|0|10|");
    EXPECT_EQ(update(2, Pri, 11), "0|0|0|") << "10 are left";
    EXPECT_EQ(update(2, Pri, 10), "10|0|0|");
    EXPECT_EQ(update(2, Sec, 1), "10|0|0|");
    EXPECT_EQ(update(2, Pri, 10, 1), "10|0|0|");
    EXPECT_EQ(update(2, Pri, 9, 1), "9|0|1|");
    EXPECT_EQ(update(2, Pri, 9, 1), "9|0|1|");
    store.UpdatePatch(Out(1), Pri, Korvo::PatchSent);
    EXPECT_EQ(update(2, Sec, 11), "9|0|1|") << "the other swap target is given back";
    EXPECT_EQ(update(2, Sec, 10), "9|10|1|");
    EXPECT_EQ(store.GetPatchLink(Out(2), Sec)->slots.size(), 10u);
    EXPECT_FALSE(store.GetPatchLink(Out(3), Sec));
    store.UpdatePatch(BoxA, Pri, Korvo::PatchNotSent);
    EXPECT_EQ(update(2, Sec, 12), "0|12|1|") << "only a destination gives up its swap target";
    EXPECT_EQ(update(2, Pri, 13), "13|12|1|");
    store.UpdatePatch(BoxB, Sec, Korvo::PatchNotSent);
    store.RemovePatch(Out(1));
    EXPECT_EQ(update(2, Sec, 1048562), "13|1048562|1|") << "that is on the other link";
    store.UpdatePatch(BoxB, Pri, Korvo::PatchNotSent);
    EXPECT_EQ(update(2, Pri, 15), "0|1048562|0|");
    EXPECT_EQ(update(2, Pri, 14), "14|1048562|0|");
    store.RemovePatch(Out(2));
    EXPECT_TRUE(store.GetPatches(BoxA, Pri, Korvo::PatchSuccess).empty());
    EXPECT_TRUE(store.GetPatches(BoxB, Pri, Korvo::PatchSuccess).empty());
    EXPECT_EQ(log.Count("PatchStore is full, slots 1048566\n"), 2u);
    EXPECT_EQ(log.Lines().size(), 5u);
}
