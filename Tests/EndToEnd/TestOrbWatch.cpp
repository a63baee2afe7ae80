// OrbWatch beside the real module: a text of the module that has changed is not understood here.

#include "Tests/EndToEnd/Network.h"

#include <cstdio>
#include <cstdlib>

using namespace stage;

namespace {

class OrbWatch : public testing::Test
{
protected:
    OrbWatch()
    {
        mUnit.Start();
        mWatch.emplace(Command{{ProgramPath("OrbWatch")}});
        mWatch->WaitForOutput("OrbWatch shows");
    }
    static std::string Get(const std::string& path)
    {
        constexpr std::uint16_t port = 8055;
        ByteStream stream = ByteStream::ConnectTcp({}, "127.0.0.1", port);
        stream.Send("GET " + path + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        return stream.TakeUntilClosed();
    }
    /// Until a page has all these parts.
    static void Expect(const std::string& path, const std::vector<std::string>& parts)
    {
        std::string page;
        for (const std::string& part : parts) {
            const auto isThere = [&] {
                if (page.find(part) == std::string::npos) page = Get(path);
                return page.find(part) != std::string::npos;
            };
            EXPECT_TRUE(Await(isThere)) << part << " is missing in " << page;
        }
    }

    Unit mUnit;
    std::optional<ChildProcess> mWatch;
};

TEST_F(OrbWatch, ShowsABoxAPatchAndItsSecondLink)
{
    Expect("/healthz", {"200 OK"});
    mUnit.Connect(0, Box);
    Expect("/api/state",
           {R"("beating":"yes","cable":"yes","check":"yes","described":"yes","localAddress":"0.8.0.1")",
            R"("hid":"0.18:8000")", R"("orb":{"stream":"yes"})", R"("hid":"0.18:1","local":false,"owner":"0.18:8000")",
            R"("hid":"0.32:1","local":true)", R"("active":"Internal")", R"("name":"bulk")"});
    mUnit.orb->Tell(PatchFromBox);
    Expect(
        "/api/state",
        {R"("source":{"hid":"0.32:1","index":3,"style":"Input"})",
         R"("runs":[{"from":[3,3],"source":"k0","to":[0,0]}],"samples":512,"sink":"bulk")",
         R"("orb":[{"destinations":1,"from":{"port":"primary","slots":[3]},"slot":0,"source":"0.32:1","sourcePort":3}])",
         R"("primary":{"link":{"port":"primary","slots":[3]},"state":"success"})"});
    mUnit.Plug(1, Box);
    Expect("/api/state", {R"("secondary":{"link":{"port":"secondary","slots":[3]},"state":"reserved"})"});
    mUnit.Unplug(0);
    Expect("/api/state", {R"("secondary":{"link":{"port":"secondary","slots":[3]},"state":"success"})",
                          R"("primary":{"beating":"no","cable":"no")"});
    Expect("/metrics", {"orbmodule_link_up{link=\"primary\"} 0\n", "orbmodule_link_up{link=\"secondary\"} 1\n",
                        "orbmodule_patches{state=\"success\"} 1\n", "orbmodule_slots_in_use{port=\"orb\"} 1\n"});
    if (std::system("command -v promtool >/dev/null") != 0) return;
    const std::string metrics = Get("/metrics");
    std::FILE* promtool = popen("promtool check metrics", "w");
    std::fputs(metrics.c_str() + metrics.find("# HELP"), promtool);
    EXPECT_EQ(pclose(promtool), 0) << "promtool";
}

TEST_F(OrbWatch, ShowsWhatIsBeyondAHubLongListingsAndThatInformationIsOff)
{
    mUnit.Connect(0, HubWithBox);
    Expect("/api/state", {R"("hid":"0.48:2","local":false,"owner":"0.48:8000")", R"("neighbour":"0.48:8000")",
                          R"("described":"yes")"});
    ShellClient shell = mUnit.module->OpenShell();
    shell.Type("db 3");
    shell.Type("patch 0 5 1 7");
    Expect("/api/state", {R"("information":false)", R"("from":[5,5],"source":"bulk","to":[7,7])"});
    shell.Type("db 3");
    Expect("/api/state", {R"("information":true)"});
    // More patches by hand than a message of the log can list.
    shell.StopTailing();
    for (int slot = 0; slot < 200; slot += 2)
        shell.Ask("patch 0 " + std::to_string(slot) + " 1 " + std::to_string(slot));
    Expect("/api/state", {R"("from":[198,198],"source":"bulk","to":[198,198])", R"("longListings":["adma/status"])",
                          R"("contact":"live")"});
}

} // namespace
