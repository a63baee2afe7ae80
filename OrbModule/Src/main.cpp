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
#include "OrbModule/Inc/DeviceManager/CommandConnections.h"
#include "OrbModule/Inc/DeviceManager/DeviceManager.h"
#include "OrbModule/Inc/LinkManager/Heartbeat.h"
#include "OrbModule/Inc/LinkManager/LinkManager.h"
#include "OrbModule/Inc/Options.h"
#include "OrbModule/Inc/OrbComms/CommandSignals.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"
#include "OrbModule/Inc/Patching/PatchController.h"
#include "OrbModule/Inc/Patching/Patcher.h"
#include "OrbModule/Inc/RunUntilStopped.h"
#include "OrbModule/Inc/SignalWatch.h"
#include "OrbModule/Inc/StartupFailure.h"
#include "OrbModule/Inc/TopLevelCommands.h"
#include "OrbModule/Inc/UDPDispatcher/HardwareManager.h"
#include "OrbModule/Inc/UDPDispatcher/UDPDispatcher.h"
#include "OrbModule/Inc/Version.h"
#include "Utilities/CommandLine/CommandLine.h"
#include "Utilities/CommandLine/RemoteAuditor.h"

#include <boost/asio/io_service.hpp>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <exception>
#include <memory>
#include <string>

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

/// The local box sends heartbeats at its own rate, so its link gets that box's time-out once it is online.
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

/// A slot that hands what it gets to a member of an object of this file.
template <class Object, class Handler>
auto To(Object& object, Handler handler)
{
    return [&object, handler](const auto&... arguments) { (object.*handler)(arguments...); };
}

// The slots of one signal or command run in the order in which they are connected, here and from one function to the
// next: a link learns of a device before the patches do, and both before its time-out is set.

void ConnectLinks(boost::asio::io_service& service, OrbCommandProcessor& processor, OrbKLVComms& comms,
                  Heartbeat& heartbeat, LinkManager& links, DeviceManager& devices)
{
    links.MasterHidChanged.connect(To(heartbeat, &Heartbeat::SetMasterHid));
    devices.LocalHidChanged.connect(To(links, &LinkManager::OnLocalHidChanged));
    devices.DeviceChange.connect(To(links, &LinkManager::OnDeviceChange));
    processor.Connect<RouterDetectTimeAllowanceCmd>(To(links, &LinkManager::ReceivedRouterTimeAllowanceCmd));
    processor.Connect<SetRouterSampleRateCmd>(To(links, &LinkManager::ReceivedSetRouterSampleRateCmd));
    links.DeviceChanged.connect(To(devices, &DeviceManager::OnDeviceChanged));
    links.IoInternalsChanged.connect(To(devices, &DeviceManager::OnIoInternalsChanged));
    links.MasterHidChanged.connect(
        [&](Hid hid) { service.dispatch([&devices, hid] { devices.OnMasterHidChanged(hid); }); });
    comms.ConnectKLVStreamChanged(To(devices, &DeviceManager::OnKLVStreamChanged));
    ConnectDiscovery(processor, devices);
    ConnectForwarding(processor, devices);
}

void ConnectPatches(OrbCommandProcessor& processor, DeviceManager& devices, PatchController& patches)
{
    devices.LocalHidChanged.connect(To(patches, &PatchController::OnLocalHidChanged));
    devices.LocalHidChanged.connect(SetLocalAddresses);
    devices.NetworkConnectionChanged.connect(To(patches, &PatchController::OnNetworkConnectionChanged));
    devices.DeviceChange.connect(To(patches, &PatchController::OnDeviceChange));
    processor.Connect<RouterPatchAudio>(To(patches, &PatchController::ReceivedRouterPatchAudioCmd));
    processor.Connect<PatchSucessfulCmd>(To(patches, &PatchController::ReceivedPatchSucessfulCmd));
    processor.Connect<AudioPatchRetryForHidCmd>(To(patches, &PatchController::ReceivedAudioPatchRetryForHid));
    processor.Connect<OstrelPingCmd>(To(patches, &PatchController::ReceivedPingCmd));
    processor.Connect<OstrelPingCmd>(To(devices, &DeviceManager::ReceivedPingCmd));
    processor.Connect<RequestActiveMcsCmd>(To(devices, &DeviceManager::ReceivedMcsRequestCmd));
}

void ConnectClock(boost::asio::io_service& service, OrbCommandProcessor& processor,
                  audio::ExternalReferenceFsi& reference, audio::ExternalClockManager& clocks)
{
    processor.Connect<SetRouterSampleRateCmd>([&](const auto& command, UINT8GIGEPORT port, Type) {
        SetClockRate(service, reference, clocks, command->GetSampleRate(), port);
    });
    clocks.mClockLocked.connect(
        [&service](unsigned int id) { service.post([id] { AUDIT_LOG(Information, "Stable Clock %u\r\n", id); }); });
}

/// From the start only the Orb router's clock may be selected.
void ChooseClocks(const Patcher& patcher, audio::ExternalClockManager& clocks)
{
    for (const auto& source : patcher.GetClockSources()) {
        if (source->GetId() == ClockOfOrbRouter) {
            clocks.PrioritiseClockSource(*source, 0, true);
            clocks.EnableClockSource(*source);
        } else {
            clocks.DisableClockSource(*source);
        }
    }
}

/// What is built and connected after the shell and the log, in this order, and the run.
void RunModule(boost::asio::io_service& service, cmd::CommandLine& shell, const std::string& programName)
{
    DebugConfigure::Instance().ReadFile(DebugFile);
    HardwareManager hardware;

    fsi::DeviceRegistry registry;
    OrbCommandProcessor processor(service);
    UDPDispatcher dispatcher(service);
    dispatcher.Register<SwitchFabric::NetworkTimeMessage, NetworkTimeMessage>(
        To(hardware, &HardwareManager::OnNetworkTimeMessage));
    Heartbeat heartbeat;
    OrbSimpleStreamContainer streams;
    OrbKLVComms comms(service, processor, streams);

    const unsigned firmwareBuild = fsi::HostFsi(FirmwareBlock, 0).GetFirmwareBuild();
    AUDIT_STREAM(Information, "Ostrel Orb Module " << programName << "(v." << ORB_MODULE_VERSION
                                                   << ", Firmware build v." << firmwareBuild << ") starting... Hid 0x"
                                                   << std::hex << BannerHid << "\n");

    LinkManager links(service, Routing::MAX_ORB_K2_PORTS, comms);
    DeviceManager devices(service, comms);
    ConnectLinks(service, processor, comms, heartbeat, links, devices);

    const auto adma = registry.Register<audio::AudioDmaFsi>("adma");
    const auto admaManager = std::make_shared<audio::AudioDmaManager>(adma, &registry);
    Patcher patcher(service, &registry, admaManager,
                    [&links](std::uint32_t link) { return links.GetAdmaEndpointId(link, EndpointIdTimeout); });
    PatchController patches(devices, comms, patcher);
    ConnectPatches(processor, devices, patches);

    const auto reference = registry.Register<audio::ExternalReferenceFsi>("extref");
    const auto clocks = std::make_shared<audio::ExternalClockManager>(service, reference);
    const fsi::UioInterruptController interrupts(service, {adma, reference});
    ConnectClock(service, processor, *reference, *clocks);
    ChooseClocks(patcher, *clocks);

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

/// Builds what outlives everything else: main service, signals, shell and log.
int RunFrame(const Options& options)
{
    boost::asio::io_service service;
    const boost::asio::io_service::work work(service);
    const SignalWatch signals(service);
    const HeapTrim heapTrim(service);

    cmd::CommandLine shell(service, options.shellEndpoint, options.programName);
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
    // A lost console or peer must not end the process.
    std::signal(SIGPIPE, SIG_IGN);
    try {
        // Help and version must work without access to the dump directory.
        Options options;
        if (const auto exitCode = ParseOptions(argc, argv, options)) return *exitCode;
        const CrashDumpHandler crashDumps(CrashDumpDirectory, argc > 0 ? argv[0] : "OrbModule");
        RaiseDescriptorLimit();
        return RunFrame(options);
    } catch (const std::exception& error) {
        return ReportStartupFailure(error);
    }
}
