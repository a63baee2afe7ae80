#pragma once

// Commands of the update service, which checks the software of devices.

#include "Common/KLV/Command.h"

#include <cstdint>
#include <string>
#include <vector>

namespace AtomicUpdate {

/// What the third number of a dotted address says of a device.
struct AddressDevice
{
    std::uint8_t kind;
    std::uint8_t side;
};

/// @param selfTest the check is of the module itself. An address that does not say gives kind 12.
AddressDevice AddressToDevice(const std::string& address, bool selfTest);

/// One device to be checked. The values are what the update service expects.
class DeviceEntry
{
public:
    DeviceEntry() = default;
    DeviceEntry(const std::string& address, std::uint8_t method, std::uint8_t enabled, std::uint8_t kind,
                std::uint8_t side, std::uint32_t id)
        : mAddress(address), mMethod(method), mEnabled(enabled), mKind(kind), mSide(side), mId(id)
    {}

    KLV_FIELDS((std::string, Address), (std::string, Path), (std::uint8_t, Method), (std::uint8_t, Enabled),
               (std::uint8_t, Kind), (std::uint8_t, Side), (std::uint32_t, Id))
};

} // namespace AtomicUpdate

/// Asks the update service to check devices.
class DevicesToCheckAndUpdateCmd : public Command<DevicesToCheckAndUpdateCmd, 6000, 1>
{
public:
    using DeviceList = std::vector<AtomicUpdate::DeviceEntry>;

    /// @param source dotted address of the sender; empty for the check of the module itself.
    explicit DevicesToCheckAndUpdateCmd(const std::string& source) : mSource(source) {}
    explicit DevicesToCheckAndUpdateCmd(KLVCommandReadSet& set) { ReadFields(set); }

    /// A neighbour of known identity.
    void AddDevice(const std::string& address, std::uint8_t kind, std::uint8_t method, Hid hid, std::uint8_t enabled);
    /// A device that only its dotted address describes.
    void AddDevice(const std::string& address, std::uint8_t method, std::uint8_t enabled, bool selfTest);

    KLV_FIELDS((std::string, Source), (DeviceList, Devices))
};

/// Result of the software check of one device, which is named by its dotted address.
class DeviceCheckResultsCmd : public Command<DeviceCheckResultsCmd, 6001>
{
public:
    static constexpr std::uint8_t UP_TO_DATE = 0;

    /// "UPTODATE" and its like, "Unknown" for any other value.
    const char* GetResultText() const;

    KLV_COMMAND_FIELDS(DeviceCheckResultsCmd, (std::string, Address), (std::uint8_t, Result))
};
