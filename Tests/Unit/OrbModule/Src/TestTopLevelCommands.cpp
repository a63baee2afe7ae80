#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Core/DeviceRegistry.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "OrbModule/Inc/Patching/Patcher.h"
#include "OrbModule/Inc/RunUntilStopped.h"
#include "OrbModule/Inc/SignalWatch.h"
#include "OrbModule/Inc/StartupFailure.h"
#include "OrbModule/Inc/TopLevelCommands.h"
#include "Tests/Support/Await.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/RecordingComms.h"
#include "Tests/Support/Transcript.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <csignal>
#include <system_error>
#include <thread>

namespace {

/// What a command logs and sends, the routes (endpoint and sample of the sink, then of the source), and its answer.
TEST(TopLevelCommands, DoWhatTheirHelpSays)
{
    const LogRecorder log;
    Lines done;
    RecordingComms comms([&done](const std::string& what) { done.push_back(what); }, DeviceNames());
    boost::asio::io_service service;
    const auto adma = std::make_shared<audio::AudioDmaFsi>();
    fsi::DeviceRegistry registry;
    Patcher patcher(service, &registry, std::make_shared<audio::AudioDmaManager>(adma, &registry),
                    [](std::uint32_t link) { return static_cast<std::uint8_t>(link + 1); });
    DeviceManager devices(service, comms);
    PatchController patches(devices, comms, patcher);
    cmd::CommandLine shell(service, {boost::asio::ip::address_v4::loopback(), 0}, "OrbModule");
    AddTopLevelCommands(shell, "Program", devices, patches, patcher, comms);
    auto before = adma->GetSynchronisedTable();
    ExpectTranscript(R"(
version -> Program 1.0.2452
rs -> Link 0Link 1Link 2
sio -> Local devices:; Remote devices:
sr -> Local devices:; Remote devices:
showlinkmap 131073 -> Inputs for device 0.2:1 :; Outputs for device 0.2:1 :
db 122 -> 122 - IODiscovery - On
db 122 -> 122 - IODiscovery - Off
db -1 -> 207 lines; 0 - Assert - On; 206 - OutputPatchReadDebug - Off
patch 0 5 1 7 -> { 1, 7, 3, 5 }
patch 256 6 258 511 -> { 1, 7, 3, 5 }; { 2, 511, 3, 6 }
unpatch 0 5 1 7 -> { 2, 511, 3, 6 }
patch 3 0 0 0 -> { 2, 511, 3, 6 }; Error: ports are 0 to 2 and slots are 0 to 511
patch 0 512 1 0 -> { 2, 511, 3, 6 }; Error: ports are 0 to 2 and slots are 0 to 511
patch 0 0 1 512 -> { 2, 511, 3, 6 }; Error: ports are 0 to 2 and slots are 0 to 511
unpatch 0 0 3 511 -> { 2, 511, 3, 6 }; Error: ports are 0 to 2 and slots are 0 to 511
unpatch 0 6 2 511 ->
spb 5 2 1 -> HubDeviceManager::GetDevicePorts: Unknown Device: 0x5(5); HubDeviceManager::GetDevicePorts: Unknown Device:
    0x5(5); P255 bitmap 00000005 2sec
spb 5 2 0 -> HubDeviceManager::GetDevicePorts: Unknown Device: 0x5(5); HubDeviceManager::GetDevicePorts: Unknown Device:
    0x5(5); P255 bitmap 00000005 2pri
ssr 5 1 -> P1 IO_SET_SAMPLE_RATE
ps ->
ping ->
)",
                     [&](const std::string& line) {
                         done.clear();
                         const std::size_t logged = log.Lines().size();
                         const std::string answer = shell.Execute(line);
                         Lines seen = log.Lines();
                         seen.erase(seen.begin(), seen.begin() + static_cast<std::ptrdiff_t>(logged));
                         if (seen.size() > 200)
                             seen = {std::to_string(seen.size()) + " lines", seen.front(), seen.back()};
                         seen.insert(seen.end(), done.begin(), done.end());
                         const bool routes = line.find("patch") != std::string::npos && answer.empty();
                         const auto dispatch = [&] {
                             adma->DispatchInterrupts();
                             std::this_thread::yield();
                         };
                         if (routes) Await([&] { return adma->GetSynchronisedTable() != before; }, dispatch);
                         for (const std::uint32_t word : before = adma->GetSynchronisedTable())
                             if (word >> 12 != 0)
                                 seen.push_back(testing::PrintToString(
                                     std::array{word >> 9 & 7, word & 0x1FF, word >> 21, word >> 12 & 0x1FF}));
                         if (!answer.empty()) seen.push_back(answer);
                         for (std::string& text : seen)
                             text = std::regex_replace(text, std::regex("\\s+$|\r|\n(?=Link)|( ) +"), "$1");
                         return seen;
                     });
}

TEST(StartupFailure, SaysWhatToDoAboutAMissingBlock)
{
    const LogRecorder log;
    testing::internal::CaptureStderr();
    EXPECT_EQ(ReportStartupFailure(std::system_error(std::make_error_code(std::errc::no_such_device), "0010")), 3);
    EXPECT_EQ(ReportStartupFailure(std::system_error(std::make_error_code(std::errc::io_error), "0010")), 3);
    EXPECT_EQ(ReportStartupFailure(std::runtime_error("other")), 3);
    const std::string text =
        "0010: No such device: load the FPGA and its UIO driver, and let /dev/uioN be read and written";
    const std::string start = "OrbModule cannot start: ";
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              start + text + "\n" + start + "0010: Input/output error\n" + start + "other\n");
    EXPECT_EQ(log.Lines(), (Lines{"Start-up failed: " + text + "\r\n", "Start-up failed: 0010: Input/output error\r\n",
                                  "Start-up failed: other\r\n"}));
}

TEST(RunUntilStopped, ContinuesAfterAHandlerThatThrows)
{
    const LogRecorder log;
    boost::asio::io_service service;
    cmd::CommandLine shell(service, {boost::asio::ip::address_v4::loopback(), 0}, "");
    service.post([] { throw std::runtime_error("broken"); });
    service.post([&service] { service.stop(); });
    RunUntilStopped(service, shell);
    EXPECT_EQ(log.Lines(), (Lines{"Exception on the main service: broken\r\n"}));
    EXPECT_TRUE(service.stopped());
}

TEST(SignalWatch, EndsTheServiceOnASignalAlone)
{
    boost::asio::io_service service;
    const boost::asio::io_service::work work(service);
    {
        const SignalWatch unused(service);
    }
    EXPECT_FALSE(service.stopped());
    const SignalWatch watch(service);
    std::raise(SIGTERM);
    service.run();
}

} // namespace
