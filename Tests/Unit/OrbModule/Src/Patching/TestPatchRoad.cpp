#include "OrbModule/Inc/Patching/PatchRoad.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The letters that stand in the text: s source own, d destination own, S source is the local box, D destination is,
/// r source heard, t destination heard.
PatchEnds Ends(const std::string& letters)
{
    PatchEnds ends;
    for (const auto& [letter, end] : {std::pair('s', &ends.sourceIsOwn),
                                      {'d', &ends.destIsOwn},
                                      {'S', &ends.sourceIsLocal},
                                      {'D', &ends.destIsLocal},
                                      {'r', &ends.sourceReachable},
                                      {'t', &ends.destReachable}})
        *end = letters.find(letter) != std::string::npos;
    return ends;
}

struct Case
{
    UINT8GIGEPORT from;
    const char* ends;
    PatchRoad road;
};

} // namespace

TEST(PatchRoad, WithARouter)
{
    for (const Case& c : {Case{1, "sd", PatchRoad::PassToOrbAndAcknowledge},
                          {2, "sdt", PatchRoad::PassToOrbAndAcknowledge},
                          {1, "d", PatchRoad::LinkToOrb},
                          {2, "dSDrt", PatchRoad::LinkToOrb},
                          {1, "", PatchRoad::None},
                          {1, "SDrt", PatchRoad::None},
                          {1, "st", PatchRoad::PassToOrbWithPort},
                          {2, "s", PatchRoad::ReportFailed},
                          {0, "", PatchRoad::OrbToLink},
                          {0, "sd", PatchRoad::OrbToLink}}) {
        EXPECT_EQ(FindRouterRoad(c.from, Ends(c.ends)), c.road) << unsigned{c.from} << ' ' << c.ends;
    }
    EXPECT_THAT(FindRouterPorts(true, 2), ElementsAre(2));
    EXPECT_THAT(FindRouterPorts(true, 255), ElementsAre(255));
    EXPECT_THAT(FindRouterPorts(false, 2), ElementsAre(1, 2));
}

TEST(PatchRoad, WithoutARouter)
{
    for (const Case& c : {// From downstream everything goes to the Orb router.
                          Case{1, "", PatchRoad::LinkToOrb},
                          {2, "SDrt", PatchRoad::LinkToOrb},
                          // The first case that holds decides.
                          {0, "Sdr", PatchRoad::LinkToOrb},
                          {0, "Sdst", PatchRoad::LinkToOrbNotHeard},
                          {0, "Drt", PatchRoad::ToLocalBox},
                          {0, "Dr", PatchRoad::None},
                          {0, "Dst", PatchRoad::None},
                          {0, "sdrt", PatchRoad::OrbToLink},
                          {0, "r", PatchRoad::OnwardsToSource},
                          {0, "dr", PatchRoad::OnwardsToSource},
                          {0, "", PatchRoad::SourceNotValid},
                          {0, "t", PatchRoad::SourceNotValid}}) {
        EXPECT_EQ(FindOrbRoad(c.from, Ends(c.ends)), c.road) << unsigned{c.from} << ' ' << c.ends;
    }
    EXPECT_THAT(FindOrbPorts(0), ElementsAre(1, 2));
    EXPECT_THAT(FindOrbPorts(2), ElementsAre(2));
    EXPECT_THAT(FindOrbPorts(255), IsEmpty());
}
