#include "Tests/EndToEnd/Network.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include <sys/stat.h>

using namespace stage;

namespace {

/// Tools that hang as long as there is a file.
class HungTools : public testing::Test
{
protected:
    HungTools()
    {
        std::filesystem::create_directory(mDirectory);
        for (const std::string tool : {"ifconfig", "route"}) {
            std::ofstream(mDirectory + tool)
                << "#!/bin/sh\nwhile [ -e " << mDirectory << "hang ]; do sleep 0.05; done\n"
                << "PATH=${PATH#*:}\nexec " << tool << " \"$@\"\n";
            chmod((mDirectory + tool).c_str(), 0755);
        }
        setenv("PATH", (mDirectory + ":" + mPath).c_str(), 1);
        mNetwork.Start();
    }
    ~HungTools() override
    {
        setenv("PATH", mPath.c_str(), 1);
        std::filesystem::remove_all(mDirectory);
    }
    /// How many heartbeats of the module the neighbour on the primary link has heard.
    unsigned long Heard() { return std::stoul(mNetwork.GetNeighbour(0).Tell("module-heartbeat").front()); }

    const std::string mDirectory = "/tmp/hung-tools/";
    const std::string mPath = std::getenv("PATH");
    Network mNetwork;
};

TEST_F(HungTools, StopNoHeartbeatsAndAreReported)
{
    mNetwork.Plug(0, HubWithBox);
    mNetwork.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, HubBoxHid);
    // The main thread hangs in route as the hub reports one more device, the scan in ifconfig.
    std::ofstream(mDirectory + "hang").close();
    const unsigned long before = Heard();
    mNetwork.GetNeighbour(0).Tell("device 0x00300003 fixed 0.48.10.1");
    mNetwork.TellDriver("plug 1 66 0");
    mNetwork.GetLog().WaitForLine("SystemWithStderr: route add -net 0.48.10.0 netmask 255.255.255.0 k2link0 is still");
    mNetwork.GetLog().WaitForLine("SystemWithStderr: ifconfig k2link1 0.8.96.2 netmask 255.255.255.0 is still running");
    // It is reported after 2 s, in which six beats are due.
    EXPECT_GE(Heard() - before, 5u);
    std::filesystem::remove(mDirectory + "hang");
    mNetwork.GetOrb().WaitForUpdate(peers::REMOTE_IO_UPDATE, "0x00300003");
    EXPECT_THAT(mNetwork.GetLog().Text(), testing::Not(testing::HasSubstr("A heartbeat send delay")));
}

} // namespace
