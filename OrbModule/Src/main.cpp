// The composition of the module: every object, in order, and every connection between them. No object reaches
// another except through a reference or a connection made here.

#include "Audit/Audit.h"
#include "Audit/DebugConfigure.h"
#include "Common/KLV/Commands/Commands.h"
#include "FSI/Audio/AudioDmaFsi.h"
#include "FSI/Audio/AudioDmaManager.h"
#include "FSI/Audio/CommandLine/AdmaNode.h"
#include "FSI/Audio/CommandLine/ExtRefNode.h"
#include "FSI/Audio/ExternalClockManager.h"
#include "FSI/Audio/ExternalReferenceFsi.h"
#include "FSI/Core/DeviceRegistry.h"
#include "FSI/Core/HostFsi.h"
#include "FSI/Core/UioInterruptController.h"
#include "MiscSource/CrashDumpHandler.h"
#include "MiscSource/HeapTrim.h"
#include "MiscSource/SystemUtilities.h"
#include "MiscSource/SystemdNotifier.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/LinkManager/Heartbeat.h"
#include "OrbModule/Inc/LinkManager/LinkManager.h"
#include "OrbModule/Inc/Options.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "OrbModule/Inc/Patching/Patcher.h"
#include "OrbModule/Inc/TopLevelCommands.h"
#include "OrbModule/Inc/UDPDispatcher/HardwareManager.h"
#include "OrbModule/Inc/UDPDispatcher/UDPDispatcher.h"
#include "OrbModule/Inc/Version.h"
#include "Utilities/CommandLine/CommandLine.h"
#include "Utilities/CommandLine/RemoteAuditor.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/system/system_error.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

#include <sys/resource.h>

namespace {

using Type = iOrbKLVComms::StreamType;

constexpr char CrashDumpDirectory[] = "/var/lib/ostrel/crashdumps";
constexpr char DebugFile[] = "/home/root/OrbModule/debug.conf";
/// What the banner shows; the module learns its real identity from the Orb router.
constexpr std::uint32_t BannerHid = 0xC002;
constexpr char FirmwareBlock[] = "0010";
constexpr rlim_t MaxDescriptors = 4096;
constexpr std::chrono::seconds EndpointIdTimeout{2};
constexpr unsigned int ClockOfOrbRouter = 4;

constexpr int ExitStartupFailed = 3;

int ReportStartupFailure(const std::exception& error)
{
    AUDIT_LOG(Fault, "Start-up failed: %s\r\n", error.what());
    std::fprintf(stderr, "OrbModule cannot start: %s\n", error.what());
    return ExitStartupFailed;
}

/// Makes an object, and adds to an Error from there what an engineer can do about it. Other errors say that themselves.
template <class Error, class Make>
auto Build(const char* advice, Make make) -> decltype(make())
{
    try {
        return make();
    } catch (const Error& error) {
        throw std::runtime_error(std::string(error.what()) + ": " + advice);
    }
}

void RaiseDescriptorLimit()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = std::max(limit.rlim_cur, std::min(limit.rlim_max, MaxDescriptors));
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// Gives eth0 the addresses of the rack's two port sides as aliases.
void SetLocalAddresses(Hid hid)
{
    for (const std::uint32_t number : {0x500u, 0x600u}) {
        SystemWithStderr("ifconfig eth0:" + std::to_string(number) + " " + AddressText((hid & 0xFFFF0000) + number) +
                             " netmask 255.255.0.0 up",
                         "/tmp/ifeth0up.err");
    }
}

void SetClockRate(boost::asio::io_service& service, audio::ExternalReferenceFsi& reference,
                  audio::ExternalClockManager& clocks, SampleRates::SystemSampleRate rate, UINT8GIGEPORT port)
{
    service.post([rate, port] {
        AUDIT_STREAM(Information, "Main lamda SetRouterSampleRateCmd" << rate << " Port " << PortText(port) << "\r\n");
    });
    const bool is44k1 = SampleRates::Is44k1Family(rate);
    reference.SetFrequencyFamily44k1(is44k1);
    clocks.SetRateToCheck(is44k1 ? 0 : 1);
}

/// The local box beats at its own pace: once it is online its link gets its time-out.
void SetHeartbeatTimeout(boost::asio::io_service& service, DeviceManager& devices, LinkManager& links, Hid hid,
                         UINT8GIGEPORT port, bool online)
{
    if (!online || !devices.IsLocalIo(hid)) return;
    if (const auto timeout = devices.GetIoTimeout(hid)) {
        links.SetUdpTimeout(ToLinkIndex(port), *timeout);
    } else {
        service.post([hid] { AUDIT_STREAM(Information, "Couldn't find timeout value for " << hid << "\r\n"); });
    }
}

/// A handler that throws costs its own work and not the show.
void RunUntilStopped(boost::asio::io_service& service, cmd::CommandLine& shell)
{
    do {
        try {
            shell.Run();
        } catch (const std::exception& error) {
            AUDIT_LOG(Fault, "Exception on the main service: %s\r\n", error.what());
        }
    } while (!service.stopped());
}

/// Everything behind the shell and the log, from the network time to the run.
void RunModule(boost::asio::io_service& service, cmd::CommandLine& shell, const std::string& programName)
{
    DebugConfigure::Instance().ReadFile(DebugFile);
    HardwareManager hardware;

    fsi::DeviceRegistry registry;
    OrbCommandProcessor processor(service);
    UDPDispatcher dispatcher(service);
    dispatcher.Register<SwitchFabric::NetworkTimeMessage, NetworkTimeMessage>(
        [&hardware](const std::shared_ptr<const NetworkTimeMessage>& message) {
            hardware.OnNetworkTimeMessage(message);
        });
    Heartbeat heartbeat;
    OrbSimpleStreamContainer streams;
    OrbKLVComms comms(service, processor, streams);

    const auto blockAdvice = "load the FPGA and its UIO driver, and let /dev/uioN be read and written";
    const unsigned firmwareBuild =
        Build<std::system_error>(blockAdvice, [] { return fsi::HostFsi(FirmwareBlock, 0).GetFirmwareBuild(); });
    AUDIT_STREAM(Information, "Ostrel Orb Module " << programName << "(v." << ORB_MODULE_VERSION
                                                   << ", Firmware build v." << firmwareBuild << ") starting... Hid 0x"
                                                   << std::hex << BannerHid << "\n");

    LinkManager links(service, Routing::MAX_ORB_K2_PORTS, comms);
    DeviceManager devices(service, comms);

    // 1 to 10: links, identity and the discovery of devices. A later slot of a signal runs after an earlier one.
    links.MasterHidChanged.connect([&](Hid hid) { heartbeat.SetMasterHid(hid); });
    devices.LocalHidChanged.connect([&](Hid hid) { links.OnLocalHidChanged(hid); });
    devices.DeviceChange.connect(
        [&](Hid hid, UINT8GIGEPORT port, bool online, Type type) { links.OnDeviceChange(hid, port, online, type); });
    processor.Connect<RouterDetectTimeAllowanceCmd>([&](const auto& command, UINT8GIGEPORT port, Type type) {
        links.ReceivedRouterTimeAllowanceCmd(command, port, type);
    });
    processor.Connect<SetRouterSampleRateCmd>([&](const auto& command, UINT8GIGEPORT port, Type type) {
        links.ReceivedSetRouterSampleRateCmd(command, port, type);
    });
    links.DeviceChanged.connect(
        [&](UINT8GIGEPORT port, std::uint32_t localIp, std::uint8_t remotePort, std::uint32_t remoteIp, Hid hid,
            K2Heartbeat::LinkType type) { devices.OnDeviceChanged(port, localIp, remotePort, remoteIp, hid, type); });
    links.IoInternalsChanged.connect(
        [&](Hid hid, std::uint32_t variant) { devices.OnIoInternalsChanged(hid, variant); });
    links.MasterHidChanged.connect([&](Hid hid) { devices.OnMasterHidChanged(hid); });
    comms.ConnectKLVStreamChanged([&](UINT8GIGEPORT port, Type type, std::uint32_t address, bool valid) {
        devices.OnKLVStreamChanged(port, type, address, valid);
    });
    devices.ConnectDiscovery(processor);
    // 11, 12: what is only passed on.
    devices.ConnectForwarding(processor);

    const auto adma =
        Build<std::system_error>(blockAdvice, [&] { return registry.Register<audio::AudioDmaFsi>("adma"); });
    const auto admaManager = std::make_shared<audio::AudioDmaManager>(adma, &registry);
    Patcher patcher = Build<std::system_error>(blockAdvice, [&] {
        return Patcher(service, &registry, admaManager,
                       [&links](std::uint32_t link) { return links.GetAdmaEndpointId(link, EndpointIdTimeout); });
    });
    PatchController patches(service, devices, comms, patcher);

    // 13 to 22: patches.
    devices.LocalHidChanged.connect([&](Hid hid) { patches.OnLocalHidChanged(hid); });
    devices.LocalHidChanged.connect(SetLocalAddresses);
    devices.NetworkConnectionChanged.connect([&](bool connected) { patches.OnNetworkConnectionChanged(connected); });
    devices.DeviceChange.connect(
        [&](Hid hid, UINT8GIGEPORT port, bool online, Type type) { patches.OnDeviceChange(hid, port, online, type); });
    processor.Connect<RouterPatchAudio>([&](const auto& command, UINT8GIGEPORT port, Type type) {
        patches.ReceivedRouterPatchAudioCmd(command, port, type);
    });
    processor.Connect<PatchSucessfulCmd>([&](const auto& command, UINT8GIGEPORT port, Type type) {
        patches.ReceivedPatchSucessfulCmd(command, port, type);
    });
    processor.Connect<AudioPatchRetryForHidCmd>([&](const auto& command, UINT8GIGEPORT port, Type type) {
        patches.ReceivedAudioPatchRetryForHid(command, port, type);
    });
    processor.Connect<OstrelPingCmd>(
        [&](const auto& command, UINT8GIGEPORT port, Type type) { patches.ReceivedPingCmd(command, port, type); });
    processor.Connect<OstrelPingCmd>(
        [&](const auto& command, UINT8GIGEPORT port, Type type) { devices.ReceivedPingCmd(command, port, type); });
    processor.Connect<RequestActiveMcsCmd>([&](const auto& command, UINT8GIGEPORT port, Type type) {
        devices.ReceivedMcsRequestCmd(command, port, type);
    });

    const auto reference =
        Build<std::system_error>(blockAdvice, [&] { return registry.Register<audio::ExternalReferenceFsi>("extref"); });
    const auto clocks = std::make_shared<audio::ExternalClockManager>(service, reference);
    fsi::UioInterruptController interrupts(service, {adma, reference});

    // 23, 24: the clock.
    processor.Connect<SetRouterSampleRateCmd>([&](const auto& command, UINT8GIGEPORT port, Type) {
        SetClockRate(service, *reference, *clocks, command->GetSampleRate(), port);
    });
    clocks->mClockLocked.connect(
        [&service](unsigned int id) { service.post([id] { AUDIT_LOG(Information, "Stable Clock %u\r\n", id); }); });
    for (const auto& source : patcher.GetClockSources()) {
        if (source->GetId() == ClockOfOrbRouter) {
            clocks->PrioritiseClockSource(*source, 0, true);
            clocks->EnableClockSource(*source);
        } else {
            clocks->DisableClockSource(*source);
        }
    }

    // 25: the heartbeat time-out of the local box.
    devices.DeviceChange.connect([&](Hid hid, UINT8GIGEPORT port, bool online, Type) {
        SetHeartbeatTimeout(service, devices, links, hid, port, online);
    });

    shell.AddNode(std::make_shared<AdmaNode>(patcher.GetManager()));
    shell.AddNode(std::make_shared<ExtRefNode>(clocks, &registry));
    AddTopLevelCommands(shell, programName, devices, patches, patcher, comms);

    AUDIT_LOG(Information, "Run...........\r\n");
    const SystemdNotifier notifier(service);
    RunUntilStopped(service, shell);
}

/// Stops the main service on SIGINT or SIGTERM. It waits on a thread of its own, so that whatever is queued on the main
/// service, such as a flood of reports, does not stand between the signal and the end.
class SignalWatch
{
public:
    explicit SignalWatch(boost::asio::io_service& mainService) : mSignals(mService, SIGINT, SIGTERM)
    {
        mSignals.async_wait([&mainService](const boost::system::error_code& error, int) {
            if (!error) mainService.stop();
        });
        mThread = std::thread([this] { mService.run(); });
    }
    ~SignalWatch()
    {
        mService.stop();
        mThread.join();
    }
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    boost::asio::io_service mService;
    boost::asio::signal_set mSignals;
    std::thread mThread;
};

/// The frame: main service, signals, shell and log, which outlive everything else.
int RunFrame(const Options& options)
{
    boost::asio::io_service service;
    const boost::asio::io_service::work work(service);
    const SignalWatch signals(service);
    const HeapTrim heapTrim(service);

    cmd::CommandLine shell = Build<boost::system::system_error>("choose another endpoint with --telnet", [&] {
        return cmd::CommandLine(service, options.shellEndpoint, options.programName);
    });
    shell.SetReceivedCallback(
        [](const std::string& line) { AUDIT_LOG(Information, "CommandLine: Received %s\r\n", line.c_str()); });
    shell.SetSentCallback([](const std::string& command, const std::string& result) {
        AUDIT_LOG(Information, "CommandLine: Sent %s Result\r\n%s\r\n", command.c_str(), result.c_str());
    });

    auto auditor = std::make_unique<cmd::RemoteAuditor>(shell, options.logPath);
    auditor->SetTailByDefault(true);
    Audit::SetInstance(auditor.release());
    const AuditGuard guard;
    if (!CrashDumpHandler::WritesDumps()) AUDIT_LOG(Information, "Built without crash dumps\r\n");

    try {
        RunModule(service, shell, options.programName);
    } catch (const std::exception& error) {
        return ReportStartupFailure(error);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    // A console or a peer that goes away is no reason to die.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        const CrashDumpHandler crashDumps(CrashDumpDirectory, argc > 0 ? argv[0] : "OrbModule");
        Options options;
        if (const auto exitCode = ParseOptions(argc, argv, options)) return *exitCode;
        RaiseDescriptorLimit();
        return RunFrame(options);
    } catch (const std::exception& error) {
        return ReportStartupFailure(error);
    }
}
