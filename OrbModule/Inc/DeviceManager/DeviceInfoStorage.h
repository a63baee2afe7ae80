#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <unordered_map>

class DeskCommand;
class IoInfo;
class IoInfoK2Mod;
class RouterInfo;

/// Keeps the commands by which each device has described itself, so that a request is answered with what was
/// received and no device is asked twice. Main thread.
class DeviceInfoStorage
{
public:
    /// The commands of a device by slot; a box without cards has all it says in slot 0.
    using CommandMap = std::map<std::uint32_t, std::shared_ptr<const DeskCommand>>;
    /// Slot of the card command that ends the description of a modular box.
    static constexpr std::uint32_t LastSlot = 0xFF;
    /// Memory of a command besides its value.
    static constexpr std::size_t CommandOverhead = 256;
    /// What devices may make this storage hold: devices, and bytes of commands.
    struct Limits
    {
        std::size_t devices = 65536;
        std::size_t bytes = 64u << 20;
    };

    struct Device
    {
        K2Heartbeat::LinkType Type = K2Heartbeat::K2_NO_TYPE;
        CommandMap Commands;

        bool IsComplete() const { return Type != K2Heartbeat::K2_MODULAR_TYPE || Commands.count(LastSlot) != 0; }
    };

    DeviceInfoStorage() : DeviceInfoStorage(Limits()) {}
    explicit DeviceInfoStorage(Limits limits) : mLimits(limits) {}

    /// Stores a command, in place of what its slot held. A storage that is full refuses, and says so in the log
    /// the first time.
    /// @param type of the device, if it is new here.
    template <class Command>
    void Emplace(Hid hid, K2Heartbeat::LinkType type, const std::shared_ptr<const Command>& command, std::uint32_t slot)
    {
        Store(hid, type, command, slot, CommandOverhead + command->GetLength());
    }
    /// A copy of what is stored of a completely described device; nothing for any other.
    std::optional<Device> GetDevice(Hid hid) const;
    /// The typed entries; null, with a log line, if there is none. Unused: this module reads only the
    /// cards, and answers requests with all entries.
    std::shared_ptr<const IoInfo> GetIoInfo(Hid hid) const;
    std::shared_ptr<const IoInfoK2Mod> GetIoInfoK2Mod(Hid hid) const;
    std::shared_ptr<const RouterInfo> GetRouterInfo(Hid hid) const;
    /// The cards of a modular box; nothing if it is not complete.
    std::optional<CommandMap> GetIoInfoCard(Hid hid) const;
    void EraseDeviceInfo(Hid hid);

private:
    struct Entry : Device
    {
        std::map<std::uint32_t, std::size_t> Lengths;
    };
    void Store(Hid hid, K2Heartbeat::LinkType type, std::shared_ptr<const DeskCommand> command, std::uint32_t slot,
               std::size_t length);
    const Entry* Find(Hid hid, const char* operation) const;
    template <class Command>
    std::shared_ptr<const Command> GetOnly(Hid hid, const char* operation) const;

    std::unordered_map<Hid, Entry> mDevices{10};
    Limits mLimits;
    std::size_t mBytes = 0;
    bool mLimitReported = false;
};
