#include "Simulation/Stage/ChildProcess.h"
#include "Tests/Support/Tshark.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

using namespace stage;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr Milliseconds LongPatience = std::chrono::minutes(2);
constexpr int LeftOut = 77;
constexpr char Capture[] = "/tmp/rehearsal.pcapng";

/// Everything that passes the module's interfaces while a rehearsal plays.
void CaptureRehearsal()
{
    // It reports on standard error that it has begun.
    ChildProcess capture({{"sh", "-c", std::string("exec dumpcap -q -i any -w ") + Capture + " 2>&1"}});
    try {
        capture.WaitForOutput("File: ");
    } catch (const NotSeen& reason) {
        std::cerr << "Nothing can be captured here: " << reason.what() << "\n";
        std::exit(std::getenv("ORB_REQUIRE_RIG") ? EXIT_FAILURE : LeftOut);
    }
    ChildProcess rehearsal({{ProgramPath("Rehearsal")}});
    EXPECT_EQ(rehearsal.Wait(LongPatience).Text(), "exit code 0") << rehearsal.Errors();
    capture.Signal(SIGINT);
    EXPECT_EQ(capture.Wait().Text(), "exit code 0") << capture.Output();
    EXPECT_THAT(capture.Output(), HasSubstr("/0 (pcap:0/dumpcap:0/")) << "packets are missing";
}

std::vector<std::string> Select(const std::string& filter)
{
    return Split(Tshark(Capture, {"-Y", filter}), '\n');
}

/// What is known to pass in a rehearsal, one of each kind. The Orb router is at 1.63.1.0, the module in rack 0.18.
const std::vector<std::string> Known = {
    "ip.dst == 1.63.1.0 && orbheartbeat.hid == 0x00088000",
    "tcp.dstport == 49190 && orbklv.DevicesToCheckAndUpdateCmd.mDevices.mAddress == \"1.63.5.0\"",
    "ip.src == 1.63.1.0 && orbklv.RouterInfo.mHid == 0x00128000 && orbklv.RouterInfo.mInputs == 512",
    "ip.src == 0.8.0.254 && orblink.type == 2 && orblink.internals && !orblink.variant",
    "ip.src == 0.8.0.254 && orbklv.IoInfoCard.mName == \"Mic\" && orbklv.IoInfoCard.mInputs.count == 8",
    "ip.src == 0.8.0.1 && orblink.type == 6 && orblink.variant.rack == 0xFFFF && ip.dsfield == 20",
    "tcp.port == 55100 && orbklv.IoInfoDevReq.mHid == 0x00300002",
    "orblink.hid == 0x00088000 && orblink.type == 1 && orblink.variant.rack == 8",
    "ip.src == 1.63.5.0 && orbklv.RemoteRouterUpdate.mType == 3 && orbklv.RemoteRouterUpdate.mHid == 0x00088000",
    "ip.src == 0.4.128.1 && orbklv.RouterPatchAudio.mDest.hid == 0x00400001 && orbklv.RouterPatchAudio.mMake == 1",
};

TEST(CapturedRehearsal, IsTakenApartToTheLastField)
{
    CaptureRehearsal();
    for (const std::string& each : Known)
        EXPECT_THAT(Select(each), Not(IsEmpty())) << each;

    EXPECT_THAT(Select("orbklv.value || orbklv.expert.cut || orbklv.expert.bad_field || orbklv.expert.too_long || "
                       "orbklv.expert.left_over || orbklv.expert.not_shown || orbklv.expert.unknown"),
                IsEmpty());
    EXPECT_THAT(Select("orblink.data || orbheartbeat.data || orbfabric.data"), IsEmpty());
    EXPECT_THAT(Select("tcp.port in {55000, 55100, 49190} && tcp.len > 0 && !orbklv && !tcp.reassembled_in && "
                       "!tcp.analysis.retransmission"),
                IsEmpty());
    EXPECT_THAT(Tshark(Capture, {"-V"}), Not(HasSubstr("Lua Error")));
}

} // namespace
