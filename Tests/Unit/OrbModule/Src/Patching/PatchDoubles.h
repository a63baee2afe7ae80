#pragma once

#include "OrbModule/Inc/DeviceManager/iDevices.h"
#include "OrbModule/Inc/Patching/iPatcher.h"
#include "Tests/Support/SendOnlyComms.h"

#include <array>
#include <map>
#include <string>
#include <vector>

namespace patching {

constexpr Hid Unit = 0xC0014000; // the unit itself, as the network names it
constexpr Hid Desk = 0xC0010005; // I/O of the own Orb router
constexpr Hid Box = 0xC0020001;  // the I/O box that is plugged in
constexpr Hid Far = 0xC0030001;  // an I/O box behind a hub or router
constexpr Hid Far2 = 0xC0030002; // two more of them
constexpr Hid Far3 = 0xC0030003;
constexpr Hid Node = 0xC0034000; // a DSP behind it
constexpr Hid Zero = 0;          // a DSP in a rack without a number

/// Name of a device in a transcript; one without a name shows its number.
std::string NameOf(Hid hid);
/// The device of a name. An unknown name is a device that nobody knows.
Hid HidOf(const std::string& name);

/// "1[4 5]"
std::string TextOf(const Routing::GigeAndSlots& link);

/// What the controller did, in order, in short words.
using Deeds = std::vector<std::string>;

/// A directory of devices that answers as the real one does, also for the devices of the own unit.
class FakeDevices : public iDevices
{
public:
    struct Device
    {
        /// Gigabit port at the remote end by port, 0xFF if not heard there.
        std::array<UINT8GIGEPORT, 3> remote;
        std::map<AudioPortNumber, std::vector<std::uint32_t>> inputs{};
        std::map<AudioPortNumber, std::vector<std::uint32_t>> outputs{};
    };
    /// By the HID under which the directory keeps them: nodes by their link form.
    std::map<Hid, Device> devices;

    bool IsDeviceOnline(Hid hid, Routing::PortsEnum port) const override { return GetDevicePorts(hid, port).IsValid(); }
    bool IsLocalIo(Hid hid) const override { return hid == Box; }
    bool IsOwnDevice(Hid hid) const override { return GetRackId(hid) == GetRackId(Unit); }
    std::vector<std::uint32_t> GetInputLinkSlot(Hid, AudioPortNumber port) const override
    {
        auto known = devices;
        return known[Box].inputs[port];
    }
    std::vector<std::uint32_t> GetOutputLinkSlot(Hid, AudioPortNumber port) const override
    {
        auto known = devices;
        return known[Box].outputs[port];
    }
    DevicePorts GetDevicePorts(Hid hid, Routing::PortsEnum port) const override;
    /// As if every remote device were its own router; nobody has reported the local box.
    std::uint32_t GetSlaveAddress(Hid hid, Routing::PortsEnum port) const override
    {
        return hid != Box && devices.count(hid) ? ::GetPortAddress(hid, port) : 0;
    }
};

class FakeComms : public SendOnlyComms
{
public:
    explicit FakeComms(Deeds& deeds) : mDeeds(deeds) {}

    bool Send(const StreamName& stream, const DeskCommand& command) override;

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

} // namespace patching
