// OrbWatch beside the real module: a text of the module that has changed is not understood here.

#include "Simulation/Stage/ByteStream.h"
#include "Simulation/Stage/Deadline.h"
#include "Tests/EndToEnd/Network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

using namespace stage;
using testing::HasSubstr;

namespace {

constexpr std::uint16_t Page = 8055;
constexpr char Facts[] = R"("beating":"yes","cable":"yes","check":"yes","described":"yes","localAddress":"0.8.0.1")";
constexpr char Microphone[] = R"("source":{"hid":"0.32:1","index":3,"style":"Input"})";

class OrbWatch : public testing::Test
{
protected:
    OrbWatch()
    {
        mNetwork.Start();
        mWatch.emplace(Command{{ProgramPath("OrbWatch")}});
        mWatch->WaitForOutput("OrbWatch shows");
    }
    static std::string Get(const std::string& path)
    {
        ByteStream stream = ByteStream::ConnectTcp({}, "127.0.0.1", Page);
        stream.Send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        return stream.TakeUntilClosed();
    }
    /// Until a page has all these parts.
    static void Await(const std::string& path, const std::vector<std::string>& parts)
    {
        std::string page;
        const auto isMissing = [&](const std::string& part) { return page.find(part) == std::string::npos; };
        const Deadline deadline(Patience);
        do {
            std::this_thread::sleep_for(Milliseconds(20));
            page = Get(path);
        } while (std::any_of(parts.begin(), parts.end(), isMissing) && !deadline.HasPassed());
        for (const std::string& part : parts)
            EXPECT_THAT(page, HasSubstr(part));
    }

    Network mNetwork;
    std::optional<ChildProcess> mWatch;
};

TEST_F(OrbWatch, ShowsABoxAPatchAndItsSecondLink)
{
    Await("/healthz", {"200 OK"});
    mNetwork.Plug(0, Box);
    mNetwork.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, Box.hid, true);
    Await("/api/state", {Facts, R"("hid":"0.18:8000")", R"("orb":{"stream":"yes"})",
                         R"("hid":"0.18:1","local":false,"owner":"0.18:8000")", R"("hid":"0.32:1","local":true)",
                         R"("active":"Internal")", R"("name":"bulk")"});
    mNetwork.GetOrb().Tell("patch src=0x00200001:1:3 link=0 dest=0x00120001:2:5");
    Await(
        "/api/state",
        {Microphone, R"("runs":[{"from":[3,3],"source":"k0","to":[0,0]}],"samples":512,"sink":"bulk")",
         R"("orb":[{"destinations":1,"from":{"port":"primary","slots":[3]},"slot":0,"source":"0.32:1","sourcePort":3}])",
         R"("primary":{"link":{"port":"primary","slots":[3]},"state":"success"})"});
    mNetwork.Plug(1, Box);
    Await("/api/state", {R"("secondary":{"link":{"port":"secondary","slots":[3]},"state":"reserved"})"});
    mNetwork.Unplug(0);
    Await("/api/state", {R"("secondary":{"link":{"port":"secondary","slots":[3]},"state":"success"})",
                         R"("primary":{"beating":"no","cable":"no")"});
    Await("/metrics", {"orbmodule_link_up{link=\"primary\"} 0\n", "orbmodule_link_up{link=\"secondary\"} 1\n",
                       "orbmodule_patches{state=\"success\"} 1\n", "orbmodule_slots_in_use{port=\"orb\"} 1\n"});
    if (std::system("command -v promtool >/dev/null") != 0) return;
    const std::string metrics = Get("/metrics");
    std::FILE* promtool = popen("promtool check metrics", "w");
    std::fputs(metrics.c_str() + metrics.find("# HELP"), promtool);
    EXPECT_EQ(pclose(promtool), 0) << "promtool";
}

TEST_F(OrbWatch, ShowsWhatIsBeyondAHubAndNoticesThatInformationIsOff)
{
    mNetwork.Plug(0, HubWithBox);
    mNetwork.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid, true);
    Await("/api/state", {R"("hid":"0.48:2","local":false,"owner":"0.48:8000")", R"("neighbour":"0.48:8000")",
                         R"("described":"yes")"});
    ShellClient shell = mNetwork.GetModule().OpenShell();
    shell.Type("db 3");
    shell.Type("patch 0 5 1 7");
    Await("/api/state", {R"("information":false)", R"("from":[5,5],"source":"bulk","to":[7,7])"});
    shell.Type("db 3");
    Await("/api/state", {R"("information":true)"});
}

/// More patches by hand than a message of the log can list.
TEST_F(OrbWatch, ReadsAListingThatIsLongerThanALogMessage)
{
    ShellClient shell = mNetwork.GetModule().OpenShell();
    shell.StopTailing();
    for (int slot = 0; slot < 200; slot += 2)
        shell.Ask("patch 0 " + std::to_string(slot) + " 1 " + std::to_string(slot));
    Await("/api/state", {R"("from":[198,198],"source":"bulk","to":[198,198])", R"("longListings":["adma/status"])",
                         R"("contact":"live")"});
}

} // namespace
