#include "Tests/Unit/OrbModule/Src/DeviceManager/DirectoryFixture.h"

#include "Common/KLV/CommandContainer.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "Common/KLV/Commands/UpdateCommands.h"

#include <chrono>
#include <iomanip>
#include <sstream>

namespace {

std::string Hex(std::uint32_t value)
{
    std::ostringstream text;
    text << std::hex << std::setw(8) << std::setfill('0') << value;
    return text.str();
}

template <class Command>
const Command* As(const DeskCommand& command)
{
    return dynamic_cast<const Command*>(&command);
}

std::string TextOf(const DeskCommand& command)
{
    std::ostringstream text;
    if (const auto* cable = As<RemoteCableStateCmd>(command)) {
        text << "Cable " << Hex(cable->GetHid()) << (cable->GetPrimary() ? " pri " : " sec ")
             << (cable->GetOnline() ? "on" : "off");
    } else if (const auto* io = As<RemoteIoUpdate>(command)) {
        text << "Io " << static_cast<int>(io->GetType()) << ' ' << Hex(io->GetHid()) << ' '
             << AddressText(io->GetAddress()) << ' ' << Hex(io->GetOwner());
        if (!io->GetSampleRates().empty()) text << " rate " << io->GetSampleRate();
    } else if (const auto* router = As<RemoteRouterUpdate>(command)) {
        text << "Router " << static_cast<int>(router->GetType()) << ' ' << Hex(router->GetHid()) << ' '
             << AddressText(router->GetAddress()) << ' ' << Hex(router->GetOwner());
    } else if (const auto* info = As<RouterInfo>(command)) {
        text << "RouterInfo " << Hex(info->GetHid()) << ' ' << static_cast<int>(info->GetType()) << ' '
             << info->GetInputs() << ' ' << info->GetOutputs() << ' ' << info->GetReserved();
    } else if (const auto* request = As<IoInfoDevReq>(command)) {
        text << "IoInfoDevReq " << Hex(request->GetHid());
    } else if (const auto* internals = As<IoBoxInternalsCmd>(command)) {
        text << "Internals " << Hex(internals->GetBitmap()) << ' ' << Hex(internals->GetHid()) << ' '
             << internals->GetHidText();
    } else if (const auto* check = As<DevicesToCheckAndUpdateCmd>(command)) {
        text << "Check '" << check->GetSource() << "'";
        for (const auto& device : check->GetDevices())
            text << ' ' << device.GetAddress() << " kind " << int{device.GetKind()} << " method "
                 << int{device.GetMethod()} << " enabled " << int{device.GetEnabled()} << " side "
                 << int{device.GetSide()} << " id " << Hex(device.GetId());
    } else {
        text << CommandIdToText(command.GetCommandId());
    }
    return text.str();
}

} // namespace

void RecordingComms::Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort)
{
    mLines.push_back("connect " + AddressText(address) + " " + std::to_string(port) + " " + std::to_string(tcpPort));
}

void RecordingComms::Disconnect(UINT8GIGEPORT port)
{
    mLines.push_back("disconnect " + std::to_string(port));
}

void RecordingComms::Disconnect(const StreamName& stream)
{
    EXPECT_EQ(stream.type, SLAVE_LINK);
    mLines.push_back("disconnect slave " + AddressText(stream.address));
}

StreamState RecordingComms::GetState(const StreamName&)
{
    if (!mExists) return StreamState::None;
    return mClosing ? StreamState::Closing : StreamState::Open;
}

bool RecordingComms::Send(const StreamName& stream, const DeskCommand& command)
{
    const auto& [type, port, address, isByAddress] = stream;
    mLast = &command;
    CommandContainer bytes;
    command.WriteTo(bytes);
    mLastBytes.resize(bytes.GetLength() - 4);
    bytes.ReadData(mLastBytes.data(), static_cast<std::uint32_t>(mLastBytes.size()));
    std::string where;
    if (type == LOCAL_LINK) where = "P" + std::to_string(port);
    if (type == MASTER_LINK) where = "master" + std::to_string(port);
    if (isByAddress) where = address != 0 ? "slave " + AddressText(address) : "slave" + std::to_string(port);
    if (type == UPDATE_LINK) where = "update";
    mLines.push_back(where + " " + TextOf(command));
    return true;
}

DeviceManager::Limits DirectoryTest::SmallLimits()
{
    DeviceManager::Limits limits;
    limits.remoteDevices = 8;
    limits.descriptions.devices = 4;
    limits.descriptions.bytes = 200000;
    limits.cableChecks = 6;
    return limits;
}

DirectoryTest::DirectoryTest(DeviceManager::Delays delays)
    : mDevices(
          mService, mComms,
          [this](const std::string& command, const std::string& errFile) {
              mLines.push_back(command + " 2>" + errFile);
              return 0;
          },
          delays, SmallLimits())
{
    mDevices.DeviceChange.connect([this](Hid hid, UINT8GIGEPORT port, bool online, StreamType type) {
        mLines.push_back("changed " + Hex(hid) + " " + std::to_string(port) + (online ? " on" : " off") +
                         (type == Local ? "" : " by another stream"));
    });
    mDevices.NetworkConnectionChanged.connect(
        [this](bool connected) { mLines.push_back(connected ? "network" : "no network"); });
}

Lines DirectoryTest::Take()
{
    mService.restart();
    mService.poll();
    return std::exchange(mLines, {});
}

Lines DirectoryTest::All(std::initializer_list<Lines> events)
{
    Lines all;
    for (const Lines& lines : events)
        all.insert(all.end(), lines.begin(), lines.end());
    return all;
}

Lines DirectoryTest::TakeAfterTimers(std::size_t count)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    mService.restart();
    while (mLines.size() < count && mService.run_one_until(deadline) != 0) {
    }
    return std::exchange(mLines, {});
}

Lines DirectoryTest::LinkUp(UINT8GIGEPORT port, Hid hid, K2Heartbeat::LinkType type)
{
    mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), NearIp(port), 3, FarIp(port), hid, type);
    return Take();
}

Lines DirectoryTest::LinkDown(UINT8GIGEPORT port, Hid hid, K2Heartbeat::LinkType type)
{
    mDevices.OnDeviceChanged(ToNumber(ToLinkIndex(port)), 0, 0xFF, 0, hid, type);
    return Take();
}

Lines DirectoryTest::Stream(UINT8GIGEPORT port, StreamType type, bool valid, std::uint32_t address)
{
    mDevices.OnKLVStreamChanged(port, type, address, valid);
    return Take();
}

Lines DirectoryTest::Checked(const std::string& address, std::uint8_t result)
{
    mDevices.OnDeviceCheckResults(std::make_shared<DeviceCheckResultsCmd>(address, result), 0, StreamType::UPDATE_LINK);
    return Take();
}

Lines DirectoryTest::KnowSelf()
{
    mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(Self, RemoteDeviceType::Orb, 512, 512, 0), 0, Local);
    Report(0, OrbIo, 0x013F0100, Self, RemoteDeviceType::Modular);
    mDevices.ProcessIOCmd(std::make_shared<IoInfoCard>(OrbIo, std::uint8_t{0xFF}, "", IoInfoCard::PortNumbers(),
                                                       IoInfoCard::PortNumbers(), IoInfoCard::CardFlags()),
                          0, Local);
    return Take();
}

Lines DirectoryTest::PlugBox(UINT8GIGEPORT port, Hid hid, K2Heartbeat::LinkType type)
{
    LinkUp(port, hid, type);
    StreamUp(port);
    Checked(AddressText(FarIp(port)));
    return Take();
}

Lines DirectoryTest::PlugRouter(UINT8GIGEPORT port, K2Heartbeat::LinkType type)
{
    LinkUp(port, RouterHid, type);
    StreamUp(port);
    mDevices.ProcessIOCmd(std::make_shared<RouterInfo>(RouterHid, ToRemoteDeviceType(type), 512, 512, 0), port, Local);
    return Take();
}

Lines DirectoryTest::Report(UINT8GIGEPORT port, Hid hid, std::uint32_t address, Hid owner, RemoteDeviceType type)
{
    mDevices.OnRemoteIoUpdate(std::make_shared<RemoteIoUpdate>(type, hid, address, owner, SampleRates::RATE_44K1,
                                                               RateList{SampleRates::RATE_44K1}),
                              port, Local);
    return Take();
}

Lines DirectoryTest::ReportRouter(UINT8GIGEPORT port, Hid hid, std::uint32_t address, RemoteDeviceType type)
{
    mDevices.OnRemoteRouterUpdate(std::make_shared<RemoteRouterUpdate>(type, hid, address, RouterHid), port, Local);
    return Take();
}
