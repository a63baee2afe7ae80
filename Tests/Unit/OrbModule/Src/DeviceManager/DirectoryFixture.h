#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceManager.h"

#include <boost/asio/io_service.hpp>

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

using Lines = std::vector<std::string>;
using namespace K2Heartbeat;

/// Records what is asked of the streams, one line each, in order: "P1 IoInfoReq" for the local stream of port 1,
/// "master1 ...", "slave 1.2.5.0 ...", "update ...", "connect 1.63.1.0 0 49190", "disconnect 1".
class RecordingComms : public iOrbKLVComms
{
public:
    explicit RecordingComms(Lines& lines) : mLines(lines) {}

    void Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) override;
    void Disconnect(UINT8GIGEPORT port) override;
    void Disconnect(const StreamName& stream) override;
    StreamState GetState(const StreamName& stream) override;
    bool Send(const StreamName& stream, const DeskCommand& command) override;

    /// The stream that stands in the directory for a local link, and whether it is being shut down.
    bool mExists = false;
    bool mClosing = false;
    const DeskCommand* mLast = nullptr;
    /// The whole item as it would have gone out.
    std::vector<std::uint8_t> mLastBytes;

private:
    Lines& mLines;
};

/// A directory on the recording double. The unit's rack is 0.18, the local box 0.32:1, the hub or router 0.48:8000.
class DirectoryTest : public ::testing::Test
{
protected:
    static constexpr std::uint32_t Self = 0x00128000;
    static constexpr std::uint32_t OrbIo = 0x00120001;
    static constexpr std::uint32_t BoxHid = 0x00200001;
    static constexpr std::uint32_t RouterHid = 0x00308000;
    static constexpr std::uint32_t Behind = 0x00300005;
    static constexpr std::uint32_t BehindIp = 0x0A141E28;
    static constexpr StreamType Local = StreamType::LOCAL_LINK;

    /// The timers stand still unless a test gives them short times.
    explicit DirectoryTest(DeviceManager::Delays delays = {std::chrono::hours(1), std::chrono::hours(1)});

    static DeviceManager::Limits SmallLimits();
    /// Runs what has been posted, and gives what was done since the last call, signals included.
    Lines Take();
    /// What was done on several events.
    static Lines All(std::initializer_list<Lines> events);
    /// Runs the timers too, until as many lines stand there. A timer acts nowhere else.
    Lines TakeAfterTimers(std::size_t count);

    static std::uint32_t NearIp(UINT8GIGEPORT port) { return port == 1 ? 0x00200001u : 0x00202001u; }
    static std::uint32_t FarIp(UINT8GIGEPORT port) { return port == 1 ? 0x002000FEu : 0x002020FEu; }
    // Each event gives what is done on it, as Take does.
    Lines LinkUp(UINT8GIGEPORT port, Hid hid, K2Heartbeat::LinkType type);
    Lines LinkDown(UINT8GIGEPORT port, Hid hid, K2Heartbeat::LinkType type = K2_NO_TYPE);
    Lines Stream(UINT8GIGEPORT port, StreamType type, bool valid, std::uint32_t address = 0);
    Lines StreamUp(UINT8GIGEPORT port, StreamType type = Local) { return Stream(port, type, true); }
    Lines StreamGone(UINT8GIGEPORT port, StreamType type = Local) { return Stream(port, type, false); }
    Lines Checked(const std::string& address, std::uint8_t result = 0);
    /// The Orb router has named itself and its internal I/O.
    Lines KnowSelf();
    /// A neighbour on a link, checked and usable.
    Lines PlugBox(UINT8GIGEPORT port, Hid hid = BoxHid, K2Heartbeat::LinkType type = K2_FIXED_FORMAT_TYPE);
    Lines PlugRouter(UINT8GIGEPORT port, K2Heartbeat::LinkType type);
    Lines Report(UINT8GIGEPORT port, Hid hid, std::uint32_t address, Hid owner = RouterHid,
                 RemoteDeviceType type = RemoteDeviceType::FixedFormat);
    Lines ReportRouter(UINT8GIGEPORT port, Hid hid, std::uint32_t address,
                       RemoteDeviceType type = RemoteDeviceType::Hub);

    Lines mLines;
    boost::asio::io_service mService;
    RecordingComms mComms{mLines};
    DeviceManager mDevices;
};

/// Takes connections as a command processor does, and delivers commands to them.
class RecordingProcessor
{
public:
    template <class Command, class Slot>
    void Connect(Slot slot)
    {
        mIds.push_back(Command::ID);
        mSlots[Command::ID] = [slot](const std::shared_ptr<const DeskCommand>& command, UINT8GIGEPORT port) {
            slot(std::static_pointer_cast<const Command>(command), port, StreamType::LOCAL_LINK);
        };
    }
    template <class Command>
    void Deliver(const std::shared_ptr<const Command>& command, UINT8GIGEPORT port)
    {
        mSlots.at(Command::ID)(command, port);
    }

    std::vector<std::uint32_t> mIds;

private:
    std::map<std::uint32_t, std::function<void(const std::shared_ptr<const DeskCommand>&, UINT8GIGEPORT)>> mSlots;
};
