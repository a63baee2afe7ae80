#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include <boost/algorithm/string.hpp>
#include <boost/lexical_cast.hpp>
#include <boost/range/algorithm_ext/erase.hpp>

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
const DeviceNames Names({{"self", 0x00128000},
                         {"desk", 0x00120001},
                         {"box", 0x00200001},
                         {"box2", 0x00210001},
                         {"hub", 0x00308000},
                         {"hub-node", 0x00304000},
                         {"far", 0x00300005},
                         {"hub2", 0x00408000},
                         {"hub2-node", 0x00404000},
                         {"nobody", 0xFFFFFFFF}});

} // namespace

/// The words of an event by their number; the default is for one that is not there.
class Directory::Words
{
public:
    explicit Words(const std::string& event)
    {
        std::istringstream text(event);
        for (std::string word; text >> word;) {
            const std::size_t times = word.find('*');
            const std::size_t count = times == std::string::npos ? 1 : std::stoul(word.substr(times + 1));
            mWords.insert(mWords.end(), count, word.substr(0, times));
        }
    }

    std::string Text(std::size_t at, const std::string& absent = "") const
    {
        return at < mWords.size() ? mWords[at] : absent;
    }
    template <class Value = std::uint32_t>
    Value Number(std::size_t at) const
    {
        return static_cast<Value>(std::strtoll(Text(at).c_str(), nullptr, 10));
    }
    Hid Device(std::size_t at, const std::string& absent = "box") const { return Names.HidOf(Text(at, absent)); }
    std::uint32_t Address(std::size_t at) const
    {
        return boost::asio::ip::make_address_v4(Text(at, "0.0.0.0")).to_uint();
    }
    /// One that there is not has the number 200.
    RemoteDeviceType Remote(std::size_t at, const std::string& absent) const
    {
        const auto type = LinkTypes.find(Text(at, absent));
        return type != LinkTypes.end() ? ToRemoteDeviceType(type->second) : static_cast<RemoteDeviceType>(200);
    }
    /// From there to the end or a slash.
    template <class Value>
    std::vector<Value> Numbers(std::size_t at) const
    {
        std::vector<Value> numbers;
        for (; at < mWords.size() && mWords[at] != "/"; ++at)
            numbers.push_back(Number<Value>(at));
        return numbers;
    }
    std::size_t AfterSlash() const
    {
        return static_cast<std::size_t>(std::find(mWords.begin(), mWords.end(), "/") - mWords.begin()) + 1;
    }

private:
    Lines mWords;
};

Directory::Directory(DeviceManager::Delays delays)
    : mComms([this](const std::string& line) { mLines.push_back(line); }, Names),
      mDevices(mService, mComms,
               [this](const std::string& command, const std::string& errFile) {
                   mLines.push_back(command + " 2>" + errFile);
                   return 0;
               },
               delays, {8, {4, 200000}, 6})
{
    mDevices.DeviceChange.connect([this](Hid hid, UINT8GIGEPORT port, bool online, StreamType type) {
        mLines.push_back(Names.NameOf(hid) + ' ' + std::to_string(port) + (online ? " on" : " off") +
                         (type == StreamType::LOCAL_LINK ? "" : " by another stream"));
    });
    mDevices.LocalHidChanged.connect([this](Hid hid) { mLines.push_back("own " + Names.NameOf(hid)); });
    mDevices.NetworkConnectionChanged.connect(
        [this](bool connected) { mLines.push_back(connected ? "network" : "no network"); });
    ConnectForwarding(*this, mDevices);
    ConnectDiscovery(*this, mDevices);
}

Lines Directory::Play(const std::string& event)
{
    Do(event);
    return std::exchange(mLines, {});
}

void Directory::Do(const std::string& event)
{
    Act(event);
    mService.restart();
    mService.poll();
}

void Directory::Act(const std::string& event)
{
    const Words w(event);
    const auto is = [&](const char* verb) { return w.Text(0) == verb; };
    const std::string onPort = ' ' + w.Text(1);
    const auto port = w.Number<UINT8GIGEPORT>(1);
    const std::uint32_t near = port == 1 ? 0x00200001 : 0x00202001;
    const std::uint32_t far = near + 0xFD;
    const auto doAll = [this](const Lines& events) {
        for (const std::string& each : events)
            Do(each);
    };
    if (is("state")) return mComms.mState.store(w.Number<StreamState>(1));
    if (is("link"))
        return mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), near, 3, far, w.Device(2),
                                        LinkTypes.at(w.Text(3)));
    if (is("unlink"))
        return mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0, 0xFF, 0, w.Device(2),
                                        LinkTypes.at(w.Text(3, "none")));
    if (is("stream") || is("gone"))
        return mDevices.OnKLVStreamChanged(port, StreamTypes.at(w.Text(2, "local")), w.Address(3), is("stream"));
    if (is("plug"))
        return doAll({"link" + onPort + ' ' + w.Text(2, "box") + ' ' + w.Text(3, "fixed"), "stream" + onPort,
                      "checked " + AddressText(far)});
    if (is("unplug")) return doAll({"unlink" + onPort, "gone" + onPort});
    if (is("hub") || is("router"))
        return doAll({"link" + onPort + " hub " + w.Text(0), "stream" + onPort, "info" + onPort + ' ' + w.Text(0)});
    if (is("self")) return doAll({"info 0 orb self", "io 0 desk 1.63.1.0 self modular", "card 0 desk 255"});
    if (is("ten")) {
        for (const char digit : std::string("0123456789")) {
            std::string each = event.substr(4);
            std::replace(each.begin(), each.end(), '#', digit);
            Do(each);
        }
        return;
    }
    if (is("internals")) return mDevices.OnIoInternalsChanged(w.Device(1), 0xAB);
    if (is("master")) return mDevices.ReceivedMcsRequestCmd(nullptr, port, StreamType::MASTER_LINK);
    if (is("ping")) return mDevices.SendPing();
    if (is("pong"))
        return mDevices.ReceivedPingCmd(std::make_shared<OstrelPingCmd>("", 3u, 4u), 1, StreamType::LOCAL_LINK);
    if (is("master-hid")) return mDevices.OnMasterHidChanged(w.Device(1));
    if (SendCommand(w, port)) return;
    for (const std::string& line : Ask(w))
        mLines.push_back(line);
}

bool Directory::SendCommand(const Words& w, UINT8GIGEPORT port)
{
    const auto is = [&](const char* verb) { return w.Text(0) == verb; };
    if (is("info")) return Deliver(port, RouterInfo(w.Device(3, "hub"), w.Remote(2, ""), 512, 512, 0));
    if (is("io")) {
        auto rates = w.Numbers<SampleRates::SystemSampleRate>(6);
        if (rates.empty()) rates.push_back(SampleRates::RATE_44K1);
        return Deliver(
            port, RemoteIoUpdate(w.Remote(5, "fixed"), w.Device(2), w.Address(3), w.Device(4, "hub"), rates[0], rates));
    }
    if (is("node"))
        return Deliver(port, RemoteRouterUpdate(w.Remote(4, "hub"), w.Device(2), w.Address(3), w.Device(5, "hub")));
    if (is("checked")) return Deliver(0, DeviceCheckResultsCmd(w.Text(1), w.Number<std::uint8_t>(2)));
    if (is("box") || is("far-box")) {
        const StreamType type = is("box") ? StreamType::LOCAL_LINK : StreamType::SLAVE_LINK;
        const auto card = [&](std::size_t at) { return w.Text(at) == "-" ? "" : w.Text(at); };
        return Deliver(port, IoInfo(w.Device(2), 7, {card(3), card(4), card(5), card(6), card(7)}), type);
    }
    if (is("card"))
        return Deliver(port, IoInfoCard(w.Device(2), w.Number<std::uint8_t>(3), "", w.Numbers<std::int16_t>(4),
                                        w.Numbers<std::int16_t>(w.AfterSlash()), {}));
    if (is("module")) return Deliver(port, IoInfoK2Mod(w.Device(2), w.Number(3), w.Number(4), "", "", ""));
    const auto rate = w.Number<SampleRates::SystemSampleRate>(1);
    if (is("rate")) return Deliver(1, IoSampleRateCapabilities(w.Device(2), rate, {rate}));
    if (is("ask-all")) return Deliver(port, IoInfoReq(), StreamType::MASTER_LINK);
    if (is("ask")) return Deliver(port, IoInfoDevReq(w.Device(2)), StreamTypes.at(w.Text(3, "local")));
    if (is("ask-router")) return Deliver(port, RouterInfoReq());
    if (is("chain")) return Deliver(port, ChainLengthCmd(1u, w.Address(2), std::uint8_t{4}));
    if (is("send")) return Deliver(port, IoOutputsOffsetCmd(w.Device(2), std::uint16_t{1}));
    if (is("dolby")) return Deliver(port, SetDolbyEModuleSource(IoPort(w.Device(2), 1, 2), IoPort(w.Device(3), 1, 2)));
    if (is("rename")) return Deliver(port, RenamePortCmd(IoPort(w.Device(2), 1, 2), "name"));
    if (is("io-rate")) return Deliver(port, IoSetSampleRateCmd(SampleRates::RATE_96K, w.Device(2), 30000u));
    if (is("card-failure")) return Deliver(port, ModIOCardFailure(w.Device(2), 1u));
    if (is("set-rate")) return Deliver(port, SetRouterSampleRateCmd(SampleRates::RATE_96K, 0u));
    return false;
}

Lines Directory::Ask(const Words& w)
{
    const auto is = [&](const char* verb) { return w.Text(0) == verb; };
    const auto texts = [](const auto& numbers) {
        Lines lines;
        for (const auto number : numbers)
            lines.push_back(std::to_string(number));
        return lines;
    };
    const auto audioPort = w.Number<AudioPortNumber>(1);
    if (is("in")) return texts(mDevices.GetInputLinkSlot(Names.HidOf("box"), audioPort));
    if (is("out")) return texts(mDevices.GetOutputLinkSlot(Names.HidOf("box"), audioPort));
    if (is("timeout")) {
        const auto timeout = mDevices.GetIoTimeout(w.Device(1));
        return timeout ? texts(std::vector{timeout->count()}) : Lines{"none"};
    }
    if (is("commands")) return texts(std::vector{mSlots.size()});
    if (is("has")) return Has(w.Device(1));
    if (is("wait")) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        mService.restart();
        while (mLines.size() < w.Number(2) && mService.run_one_until(deadline) != 0) {
        }
        return {};
    }
    Lines lines = mLog.Lines();
    const auto before = is("log") ? 0 : static_cast<std::ptrdiff_t>(lines.size());
    if (is("list")) mDevices.ShowDevices(w.Text(1) == "io");
    if (is("port-map")) mDevices.ShowPortMap(w.Device(1));
    lines = mLog.Lines();
    lines.erase(lines.begin(), lines.begin() + before);
    if (is("log"))
        boost::remove_erase_if(lines, [&](const std::string& line) { return !boost::contains(line, w.Text(1)); });
    for (std::string& line : lines)
        for (const auto& [blank, text] : {std::pair("\r", "\\r"), {"\n", "\\n"}, {"\t", "\\t"}})
            boost::replace_all(line, blank, text);
    return is("log") || is("list") || is("port-map") ? lines : Lines{"not understood"};
}

Lines Directory::Has(Hid hid) const
{
    Lines lines;
    const DeviceRecord* record = mDevices.GetDeviceRecord(hid);
    if (mDevices.IsLocalIo(hid)) lines.push_back("local");
    if (mDevices.IsOwnDevice(hid)) lines.push_back("own");
    if (!record) return lines;
    lines.push_back(boost::trim_copy(boost::lexical_cast<std::string>(record->Type)) + " rates " +
                    std::to_string(record->SampleRates.size()));
    for (const Side side : BothSides) {
        const Routing::PortsEnum port = ToPort(side);
        const DevicePorts ports = mDevices.GetDevicePorts(hid, port);
        if (mDevices.IsDeviceOnline(hid, port) || ports.IsValid())
            lines.push_back((IsPrimary(side) ? "pri " : "sec ") + std::to_string(ports.local) + " to " +
                            std::to_string(ports.remote) + " at " + AddressText(record->Link(side).RemoteIp) + " by " +
                            AddressText(mDevices.GetSlaveAddress(hid, port)));
    }
    return lines;
}
