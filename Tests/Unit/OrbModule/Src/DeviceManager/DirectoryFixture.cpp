#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include <chrono>

using namespace K2Heartbeat;

namespace {

const std::map<std::string, K2Heartbeat::LinkType> LinkTypes{
    {"none", K2_NO_TYPE}, {"router", K2_ROUTER_TYPE}, {"modular", K2_MODULAR_TYPE}, {"fixed", K2_FIXED_FORMAT_TYPE},
    {"hub", K2_HUB_TYPE}, {"orb", K2_ORB_TYPE},       {"module", K2_MODULE_TYPE},   {"aoip", K2_AOIP_TYPE}};
const std::map<std::string, StreamType> StreamTypes{{"local", StreamType::LOCAL_LINK},
                                                    {"master", StreamType::MASTER_LINK},
                                                    {"slave", StreamType::SLAVE_LINK},
                                                    {"update", StreamType::UPDATE_LINK},
                                                    {"unknown", StreamType::UNKNOWN_STREAM}};

std::uint32_t NearIp(UINT8GIGEPORT port)
{
    return port == 1 ? 0x00200001u : 0x00202001u;
}
std::uint32_t FarIp(UINT8GIGEPORT port)
{
    return port == 1 ? 0x002000FEu : 0x002020FEu;
}

DeviceManager::Limits SmallLimits()
{
    DeviceManager::Limits limits;
    limits.remoteDevices = 8;
    limits.descriptions.devices = 4;
    limits.descriptions.bytes = 200000;
    limits.cableChecks = 6;
    return limits;
}

} // namespace

class Directory::Words
{
public:
    explicit Words(const std::string& text) : mText(text) {}

    std::string Text(const std::string& absent = "")
    {
        std::string word;
        return mText >> word ? word : absent;
    }
    std::uint32_t Number(std::uint32_t absent = 0)
    {
        return static_cast<std::uint32_t>(std::stoul(Text(std::to_string(absent))));
    }
    UINT8GIGEPORT Port() { return static_cast<UINT8GIGEPORT>(Number()); }
    Hid Device(const std::string& absent = "box") { return Names().HidOf(Text(absent)); }
    std::uint32_t Address(const std::string& absent = "0.0.0.0")
    {
        return boost::asio::ip::make_address_v4(Text(absent)).to_uint();
    }
    K2Heartbeat::LinkType Type(const std::string& absent) { return LinkTypes.at(Text(absent)); }
    /// One that there is not has the number 200.
    RemoteDeviceType Remote(const std::string& absent)
    {
        const auto type = LinkTypes.find(Text(absent));
        return type != LinkTypes.end() ? ToRemoteDeviceType(type->second) : static_cast<RemoteDeviceType>(200);
    }
    /// Up to the end or a slash; a dash is an empty one.
    Lines List()
    {
        Lines list;
        for (std::string word; mText >> word && word != "/";)
            list.push_back(word == "-" ? "" : word);
        return list;
    }
    IoInfoCard::PortNumbers Ports()
    {
        IoInfoCard::PortNumbers ports;
        for (const std::string& port : List())
            ports.push_back(static_cast<std::int16_t>(std::stoi(port)));
        return ports;
    }

private:
    std::istringstream mText;
};

const DeviceNames& Directory::Names()
{
    static const DeviceNames names({{"self", 0x00128000},
                                    {"desk", 0x00120001},
                                    {"box", 0x00200001},
                                    {"box2", 0x00210001},
                                    {"hub", 0x00308000},
                                    {"hub-node", 0x00304000},
                                    {"far", 0x00300005},
                                    {"hub2", 0x00408000},
                                    {"hub2-node", 0x00404000},
                                    {"nobody", 0xFFFFFFFF}});
    return names;
}

Directory::Directory(DeviceManager::Delays delays)
    : mComms([this](const std::string& line) { mLines.push_back(line); }, Names()),
      mDevices(
          mService, mComms,
          [this](const std::string& command, const std::string& errFile) {
              mLines.push_back(command + " 2>" + errFile);
              return 0;
          },
          delays, SmallLimits())
{
    mDevices.DeviceChange.connect([this](Hid hid, UINT8GIGEPORT port, bool online, StreamType type) {
        mLines.push_back(Names().NameOf(hid) + ' ' + std::to_string(port) + (online ? " on" : " off") +
                         (type == StreamType::LOCAL_LINK ? "" : " by another stream"));
    });
    mDevices.NetworkConnectionChanged.connect(
        [this](bool connected) { mLines.push_back(connected ? "network" : "no network"); });
    ConnectForwarding(mProcessor, mDevices);
    ConnectDiscovery(mProcessor, mDevices);
    Play("");
}

void Directory::Run()
{
    mService.restart();
    mService.poll();
}

Lines Directory::Play(const std::string& event)
{
    Words words(event);
    const std::string verb = words.Text();
    const bool isKnown = PlayLink(verb, words) || PlayReport(verb, words) || PlayDescription(verb, words) ||
                         PlayRequest(verb, words) || PlayQuestion(verb, words);
    Run();
    if (!isKnown && !event.empty()) mLines.push_back("not understood");
    return std::exchange(mLines, {});
}

Lines Directory::TakeAfterTimers(std::size_t count)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    mService.restart();
    while (mLines.size() < count && mService.run_one_until(deadline) != 0) {
    }
    return std::exchange(mLines, {});
}

bool Directory::PlayLink(const std::string& verb, Words& words)
{
    if (verb == "closing" || verb == "exists") {
        mComms.mExists = true;
        mComms.mClosing = verb == "closing";
        return true;
    }
    const bool isLink = verb == "link" || verb == "plug";
    const bool isRouter = verb == "hub" || verb == "router";
    if (!isLink && !isRouter && verb != "unlink" && verb != "unplug" && verb != "stream" && verb != "gone")
        return false;
    const UINT8GIGEPORT port = words.Port();
    if (isLink || isRouter) {
        const Hid hid = words.Device(isRouter ? "hub" : "box");
        const auto type = words.Type(isRouter ? verb : "fixed");
        mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), NearIp(port), 3, FarIp(port), hid, type);
    } else if (verb == "unlink" || verb == "unplug") {
        const Hid hid = words.Device();
        mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0, 0xFF, 0, hid, words.Type("none"));
    }
    Run();
    if (verb == "link" || verb == "unlink") return true;
    const StreamType type = StreamTypes.at(words.Text("local"));
    mDevices.OnKLVStreamChanged(port, type, words.Address(), verb != "gone" && verb != "unplug");
    Run();
    if (verb == "plug") Deliver(DeviceCheckResultsCmd(AddressText(FarIp(port)), 0), 0);
    if (isRouter) Play("info " + std::to_string(port) + ' ' + verb);
    return true;
}

bool Directory::PlayReport(const std::string& verb, Words& words)
{
    if (verb == "self") {
        Deliver(RouterInfo(Names().HidOf("self"), RemoteDeviceType::Orb, 512, 512, 0), 0);
        Play("io 0 desk 1.63.1.0 self modular");
        Play("card 0 255 desk");
    } else if (verb == "info") {
        const UINT8GIGEPORT port = words.Port();
        const RemoteDeviceType type = words.Remote("hub");
        Deliver(RouterInfo(words.Device("hub"), type, 512, 512, 0), port);
    } else if (verb == "io") {
        const UINT8GIGEPORT port = words.Port();
        const Hid hid = words.Device();
        const std::uint32_t address = words.Address();
        const Hid owner = words.Device("hub");
        Deliver(RemoteIoUpdate(words.Remote("fixed"), hid, address, owner, SampleRates::RATE_44K1,
                               {SampleRates::RATE_44K1}),
                port);
    } else if (verb == "node") {
        const UINT8GIGEPORT port = words.Port();
        const Hid hid = words.Device();
        const std::uint32_t address = words.Address();
        Deliver(RemoteRouterUpdate(words.Remote("hub"), hid, address, Names().HidOf("hub")), port);
    } else if (verb == "checked") {
        const std::string address = words.Text();
        Deliver(DeviceCheckResultsCmd(address, static_cast<std::uint8_t>(words.Number())), 0);
    } else {
        return false;
    }
    return true;
}

bool Directory::PlayDescription(const std::string& verb, Words& words)
{
    if (verb == "box" || verb == "far-box") {
        const UINT8GIGEPORT port = words.Port();
        const Hid hid = words.Device();
        IoInfo::SlotNames names;
        const Lines cards = words.List();
        std::copy(cards.begin(), cards.end(), names.begin());
        Deliver(IoInfo(hid, 7, names), port, verb == "box" ? StreamType::LOCAL_LINK : StreamType::SLAVE_LINK);
    } else if (verb == "card") {
        const UINT8GIGEPORT port = words.Port();
        const auto slot = static_cast<std::uint8_t>(words.Number());
        const Hid hid = words.Device();
        const IoInfoCard::PortNumbers inputs = words.Ports();
        Deliver(IoInfoCard(hid, slot, "", inputs, words.Ports(), {}), port);
    } else if (verb == "module") {
        const UINT8GIGEPORT port = words.Port();
        const Hid hid = words.Device();
        const std::uint32_t inputs = words.Number();
        Deliver(IoInfoK2Mod(hid, inputs, words.Number(), "", "", ""), port);
    } else if (verb == "rate") {
        const auto rate = static_cast<SampleRates::SystemSampleRate>(words.Number());
        Deliver(IoSampleRateCapabilities(Names().HidOf("box"), rate, {rate}), 1);
    } else {
        return false;
    }
    return true;
}

bool Directory::PlayRequest(const std::string& verb, Words& words)
{
    if (verb == "ask") {
        const UINT8GIGEPORT port = words.Port();
        const std::string device = words.Text();
        if (device.empty()) Deliver(IoInfoReq(), port, StreamType::MASTER_LINK);
        if (!device.empty()) Deliver(IoInfoDevReq(Names().HidOf(device)), port);
    } else if (verb == "chain") {
        const UINT8GIGEPORT port = words.Port();
        Deliver(ChainLengthCmd(1u, words.Address(), std::uint8_t{4}), port);
    } else if (verb == "internals") {
        mDevices.OnIoInternalsChanged(words.Device(), 0xAB);
    } else if (verb == "master") {
        mDevices.ReceivedMcsRequestCmd(std::make_shared<RequestActiveMcsCmd>(), words.Port(), StreamType::MASTER_LINK);
    } else if (verb == "ping") {
        mDevices.SendPing();
    } else if (verb == "pong") {
        mDevices.ReceivedPingCmd(std::make_shared<OstrelPingCmd>("1.2.5.0", 3u, 4u), 1, StreamType::LOCAL_LINK);
    } else if (verb == "set-rate") {
        Deliver(SetRouterSampleRateCmd(SampleRates::RATE_96K, 0u), words.Port());
    } else if (verb == "card-failure") {
        const UINT8GIGEPORT port = words.Port();
        Deliver(ModIOCardFailure(words.Device(), 1u), port);
    } else if (verb == "send") {
        const UINT8GIGEPORT port = words.Port();
        const auto command = std::make_shared<const IoOutputsOffsetCmd>(words.Device(), std::uint16_t{1});
        mProcessor.Deliver(command, port, StreamType::LOCAL_LINK);
        if (!mLines.empty() && mComms.mLast != command.get()) mLines.push_back("as a copy");
    } else {
        return false;
    }
    return true;
}

bool Directory::PlayQuestion(const std::string& verb, Words& words)
{
    std::ostringstream answer;
    if (verb == "in" || verb == "out") {
        const Hid box = Names().HidOf("box");
        const auto port = static_cast<AudioPortNumber>(words.Number());
        const auto slots = verb == "in" ? mDevices.GetInputLinkSlot(box, port) : mDevices.GetOutputLinkSlot(box, port);
        for (const std::uint32_t slot : slots)
            mLines.push_back(std::to_string(slot));
    } else if (verb == "timeout") {
        mLines.push_back(std::to_string(mDevices.GetIoTimeout(words.Device())->count()));
    } else if (verb == "ports") {
        const UINT8GIGEPORT port = words.Port();
        const DevicePorts ports = mDevices.GetDevicePorts(words.Device(), ToPortsEnum(port));
        if (ports.IsValid()) mLines.push_back(std::to_string(ports.local) + " to " + std::to_string(ports.remote));
    } else if (verb == "slave") {
        const UINT8GIGEPORT port = words.Port();
        mLines.push_back(AddressText(mDevices.GetSlaveAddress(words.Device(), ToPortsEnum(port))));
    } else if (verb == "has") {
        const Hid hid = words.Device();
        if (mDevices.IsLocalIo(hid)) mLines.push_back("local");
        if (mDevices.GetDeviceRecord(hid)) mLines.push_back("known");
        for (const Routing::PortsEnum port : {Routing::PRIMARY_PORT, Routing::SECONDARY_PORT}) {
            if (mDevices.IsDeviceOnline(hid, port)) mLines.push_back(port == 1 ? "pri" : "sec");
        }
    } else {
        return false;
    }
    return true;
}
