#pragma once

#include "Common/KLV/Command.h"
#include "Common/KLV/ModelFields.h"

#include <cstdint>
#include <iosfwd>
#include <vector>

/// An I/O device has appeared, or has gone if its address (host order) is 0. The owner is the router that reports it.
class RemoteIoUpdate : public Command<RemoteIoUpdate, 826>
{
public:
    using RateList = std::vector<SampleRates::SystemSampleRate>;

    /// The short form of a removal: rate 0 and no list of rates.
    RemoteIoUpdate(RemoteDeviceType type, Hid hid, std::uint32_t address, Hid owner)
        : RemoteIoUpdate(type, hid, address, owner, SampleRates::RATE_48K, {})
    {}

    KLV_COMMAND_FIELDS(RemoteIoUpdate, (RemoteDeviceType, Type), (Hid, Hid), (std::uint32_t, Address), (Hid, Owner),
                       (SampleRates::SystemSampleRate, SampleRate), (RateList, SampleRates))
};

std::ostream& operator<<(std::ostream& out, const RemoteIoUpdate& update);

namespace IoUpdate {

/// Whether a RemoteIoUpdate may tell of this type.
constexpr bool IsIoType(RemoteDeviceType type)
{
    return type == RemoteDeviceType::Modular || type == RemoteDeviceType::FixedFormat ||
           type == RemoteDeviceType::None || type == RemoteDeviceType::Module || type == RemoteDeviceType::AoIP;
}

} // namespace IoUpdate
