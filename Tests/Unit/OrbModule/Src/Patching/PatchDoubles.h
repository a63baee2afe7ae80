#pragma once

#include "OrbModule/Inc/DeviceManager/iDevices.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"
#include "OrbModule/Inc/Patching/iPatcher.h"

#include <array>
#include <map>
#include <string>
#include <vector>

/// What the controller did to the world, in order, in short words.
using Deeds = std::vector<std::string>;

/// A directory of devices that a test fills by hand.
class FakeDevices : public iDevices
{
public:
    struct Device
    {
        bool isLocal = false;
        bool isOwn = false;
        /// Gigabit port at the remote end by port, 0xFF if not heard there.
        std::array<UINT8GIGEPORT, 3> remote{UNKNOWN_GIGE_PORT, UNKNOWN_GIGE_PORT, UNKNOWN_GIGE_PORT};
        std::map<AudioPortNumber, std::vector<std::uint32_t>> inputs{};
        std::map<AudioPortNumber, std::vector<std::uint32_t>> outputs{};
    };
    std::map<Hid, Device> devices;

    bool IsDeviceOnline(Hid hid, UINT8GIGEPORT port) override { return GetDevicePorts(hid, port).IsValid(); }
    bool IsLocalIo(Hid hid) override { return devices.count(hid) && devices[hid].isLocal; }
    bool IsOwnDevice(Hid hid) override { return devices.count(hid) && devices[hid].isOwn; }
    std::vector<std::uint32_t> GetInputLinkSlot(Hid hid, AudioPortNumber port) override
    {
        return devices[hid].inputs[port];
    }
    std::vector<std::uint32_t> GetOutputLinkSlot(Hid hid, AudioPortNumber port) override
    {
        return devices[hid].outputs[port];
    }
    DevicePorts GetDevicePorts(Hid hid, UINT8GIGEPORT port) override
    {
        const auto device = devices.find(hid);
        if (device == devices.end() || port > 2 || device->second.remote[port] == UNKNOWN_GIGE_PORT) return {};
        return {port, device->second.remote[port]};
    }
    /// The HID's rack with the port side, as if every device were its own router.
    std::uint32_t GetSlaveAddress(Hid hid, UINT8GIGEPORT port) override { return GetPortAddress(hid, port); }
};

class FakeComms : public iOrbKLVComms
{
public:
    explicit FakeComms(Deeds& deeds) : mDeeds(deeds) {}

    void Connect(std::uint32_t, UINT8GIGEPORT, std::uint16_t) override {}
    void Disconnect(UINT8GIGEPORT) override {}
    bool DisconnectPending(UINT8GIGEPORT, StreamType, bool&) override { return false; }
    void Disconnect(std::uint32_t, StreamType) override {}
    bool SendCmd(UINT8GIGEPORT port, const DeskCommand& command, StreamType type, std::uint32_t address) override;
    void AddKLVStream(OrbKLVStream&) override {}
    void RemoveKLVStream(OrbKLVStream&) override {}
    std::uint32_t GetPortAddress(UINT8GIGEPORT) override { return 0; }

private:
    Deeds& mDeeds;
};

class FakePatcher : public iPatcher
{
public:
    explicit FakePatcher(Deeds& deeds) : mDeeds(deeds) {}

    void ProcessPatchUnpatch(const LinkPatch& patch, bool make) override;
    void ProcessUnpatches(const std::vector<LinkPatch>& patches) override;
    void RemoveAllPatches() override { mDeeds.push_back("remove all"); }

private:
    Deeds& mDeeds;
};
