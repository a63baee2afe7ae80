#include "Simulation/Peers/Kinds.h"

namespace peers {

namespace {

/// Between the end of a stream and the next one.
constexpr std::chrono::milliseconds SettlingTime{600};

std::uint32_t TypeOf(K2Heartbeat::LinkType type)
{
    return type == K2Heartbeat::K2_HUB_TYPE ? messages::Hub : messages::Router;
}

} // namespace

RoutingNode::RoutingNode(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid,
                         K2Heartbeat::LinkType type)
    : LinkNode(service, place, cable, hid, type)
{}

Command RoutingNode::GetReport(std::uint32_t hid, const Device& device, std::uint32_t address) const
{
    const Description& description = device.description;
    return messages::RemoteIoUpdate(ToRemoteType(description.GetKind()), hid, address, GetHid(), description.GetRate(),
                                    description.GetRates());
}

std::vector<Command> RoutingNode::GetReports() const
{
    std::vector<Command> reports;
    for (const auto& [hid, router] : mRouters)
        reports.push_back(messages::RemoteRouterUpdate(router.type, hid, router.address, GetHid()));
    for (const auto& [hid, device] : mDevices)
        reports.push_back(GetReport(hid, device, device.address));
    return reports;
}

void RoutingNode::Tell(const Command& command)
{
    if (Stream* stream = Find("local")) stream->Send(command);
}

void RoutingNode::Report()
{
    for (const Command& report : GetReports())
        Tell(report);
}

void RoutingNode::OnCommand(Stream& stream, const Command& command)
{
    switch (command.id) {
    case ROUTER_INFO_REQ: {
        std::vector<Command> answer{messages::RouterInfo(GetHid(), TypeOf(GetType()), 512, 512)};
        if (CanBeAsked()) {
            for (Command& report : GetReports())
                answer.push_back(std::move(report));
        }
        Answer(stream, command.id, answer);
        break;
    }
    case IO_INFO_REQ:
    case IO_INFO_DEV_REQ:
        Describe(stream, command);
        break;
    case PING:
        // A reply is the same command, with the address of who replies; answering one would never end.
        if (Reader(command).Text() == "ORBMODULE")
            Answer(stream, command.id, {messages::Ping(AddressOf(GetOwnAddress()), 0, 0)});
        break;
    default:
        break;
    }
}

void RoutingNode::Describe(Stream& stream, const Command& request)
{
    Reader reader(request);
    const std::uint32_t hid = request.id == IO_INFO_DEV_REQ ? reader.U32() : mOwnIo.value_or(0);
    const auto device = mDevices.find(hid);
    if (device != mDevices.end()) Answer(stream, request.id, device->second.description.ToCommands(hid));
}

void RoutingNode::AddDevice(const Line& line)
{
    const std::uint32_t hid = line.Number(0);
    const Device device{ToAddress(line.Word(2)), Description(ToBoxKind(line.Word(1)))};
    mDevices.insert_or_assign(hid, device);
    Tell(GetReport(hid, device, device.address));
}

void RoutingNode::RemoveDevice(const Line& line)
{
    const auto device = mDevices.find(line.Number(0));
    if (device == mDevices.end()) throw LineError("there is no device " + line.Word(0));
    Tell(GetReport(device->first, device->second, 0));
    mDevices.erase(device);
}

bool RoutingNode::OnVerb(const Line& line, std::string& answer)
{
    const std::string& verb = line.GetVerb();
    if (verb == "device") {
        AddDevice(line);
    } else if (verb == "device-gone") {
        RemoveDevice(line);
    } else if (verb == "of") {
        // "of HID card 0 QV1410": the rest of the line is about that device.
        const auto device = mDevices.find(line.Number(0));
        if (device == mDevices.end()) throw LineError("there is no device " + line.Word(0));
        if (!device->second.description.Set(line.After(1))) throw LineError("'" + line.Word(1) + "' is unknown");
    } else if (verb == "own-io") {
        mOwnIo = line.Number(0);
    } else if (verb == "router") {
        const Router router{line.Named("type", static_cast<std::uint32_t>(messages::Hub)), ToAddress(line.Word(1))};
        mRouters.insert_or_assign(line.Number(0), router);
        Tell(messages::RemoteRouterUpdate(router.type, line.Number(0), router.address, GetHid()));
    } else if (verb == "router-gone") {
        const auto router = mRouters.find(line.Number(0));
        if (router == mRouters.end()) throw LineError("there is no router " + line.Word(0));
        Tell(messages::RemoteRouterUpdate(router->second.type, router->first, 0, 0));
        mRouters.erase(router);
    } else if (verb == "report") {
        Report();
    } else if (verb == "flood") {
        // Devices without end, or up to a number of them.
        const std::uint32_t first = line.Number(0);
        for (std::uint32_t i = 0; i < line.Number(1); ++i)
            Tell(messages::RemoteIoUpdate(messages::Fixed, first + i, 0x0A000001 + 256 * i, GetHid(), 0, {0}));
    } else {
        return LinkNode::OnVerb(line, answer);
    }
    return true;
}

std::string RoutingNode::GetHelp() const
{
    return LinkNode::GetHelp() + "device HID fixed|modular|aoip|module ADDRESS | device-gone HID | own-io HID\n"
                                 "of HID card ... | of HID ports ... | of HID rate ...\n"
                                 "router HID ADDRESS [type=5] | router-gone HID | report | flood FIRST-HID COUNT\n";
}

Hub::Hub(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid)
    : RoutingNode(service, place, cable, hid, K2Heartbeat::K2_HUB_TYPE)
{}

void Hub::OnStream(Stream& stream)
{
    if (mReportsAtOnce && stream.GetName() == "local") Report();
}

void Hub::OnCommand(Stream& stream, const Command& command)
{
    RoutingNode::OnCommand(stream, command);
    if (command.id == IO_INFO_REQ && stream.GetName() == "data" && !mReportsAtOnce) Report();
}

bool Hub::OnVerb(const Line& line, std::string& answer)
{
    if (line.GetVerb() != "at-once") return RoutingNode::OnVerb(line, answer);
    mReportsAtOnce = line.Flag(0);
    return true;
}

std::string Hub::GetHelp() const
{
    return RoutingNode::GetHelp() + "at-once on|off\n";
}

std::vector<std::uint32_t> Hub::GetFurtherAddresses() const
{
    return {GetPortAddress(Hid(GetHid()), ToPortsEnum(GetPort()))};
}

void Hub::ListenForStreams()
{
    Listen(mPlace.own, mPlace.localPort);
    // The data link ends at the address of the rack's port side; without an interface of its own, at the only one.
    Listen(HasInterface() ? GetFurtherAddresses().front() : mPlace.own, mPlace.dataPort);
}

MasterRouter::MasterRouter(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid)
    : RoutingNode(service, place, cable, hid, K2Heartbeat::K2_ROUTER_TYPE)
{
    SetWord(hid & 0xFFFF0000);
}

void MasterRouter::OnAppear()
{
    RoutingNode::OnAppear();
    Keep(mPlace.module, mPlace.localPort);
    Keep(mPlace.module, mPlace.dataPort);
}

bool MasterRouter::MayOpen()
{
    return std::chrono::steady_clock::now() - mLastEnd >= SettlingTime;
}

void MasterRouter::OnStreamEnded()
{
    mLastEnd = std::chrono::steady_clock::now();
}

bool MasterRouter::OnVerb(const Line& line, std::string& answer)
{
    if (line.GetVerb() != "master") return RoutingNode::OnVerb(line, answer);
    SetWord(line.Number(0) << 16 | (line.NumberOr(2, 0) & 3) << 4 | (line.NumberOr(1, 0) & 15));
    return true;
}

std::string MasterRouter::GetHelp() const
{
    return RoutingNode::GetHelp() + "master RACK [NUMBER [RATE]]\n";
}

} // namespace peers
