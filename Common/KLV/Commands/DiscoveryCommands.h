#pragma once

// Discovery: requests for descriptions, the descriptions, and reports of devices.

#include "Common/KLV/Command.h"
#include "MiscSource/GlobalConstants.h"

#include <array>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

/// Asks a device for its description.
class IoInfoReq : public Command<IoInfoReq, 800>
{
    KLV_COMMAND_WITHOUT_FIELDS(IoInfoReq)
};

/// Description of a fixed format box: the card model code in each of its five slots, empty for an empty slot.
class IoInfo : public Command<IoInfo, 801>
{
public:
    using SlotNames = std::array<std::string, 5>;

    KLV_COMMAND_FIELDS(IoInfo, (Hid, Hid), (std::uint8_t, Type), (SlotNames, Slots))
};

/// One card of a modular box: the hardware port number of each input and output. Slot 0xFF ends the description.
class IoInfoCard : public Command<IoInfoCard, 811>
{
public:
    using PortNumbers = std::vector<std::int16_t>;
    using CardFlags = std::array<std::uint8_t, 4>;

    KLV_COMMAND_FIELDS(IoInfoCard, (Hid, Hid), (std::uint8_t, Slot), (std::string, Name), (PortNumbers, Inputs),
                       (PortNumbers, Outputs), (CardFlags, Flags))
};

/// Asks for the description of one named device.
class IoInfoDevReq : public Command<IoInfoDevReq, 814>
{
    KLV_COMMAND_FIELDS(IoInfoDevReq, (Hid, Hid))
};

/// Description of an audio module device: the number of its inputs and outputs.
class IoInfoK2Mod : public Command<IoInfoK2Mod, 822>
{
    KLV_COMMAND_FIELDS(IoInfoK2Mod, (Hid, Hid), (std::uint32_t, Inputs), (std::uint32_t, Outputs), (std::string, Name1),
                       (std::string, Name2), (std::string, Name3))
};

/// Extended form of the request for a description.
class IoInfoReqEx : public Command<IoInfoReqEx, 877>
{
    KLV_COMMAND_FIELDS(IoInfoReqEx, (std::uint32_t, Revision))
};

/// Current and supported sample rates of a device.
class IoSampleRateCapabilities : public Command<IoSampleRateCapabilities, 874>
{
public:
    using RateList = std::vector<SampleRates::SystemSampleRate>;

    KLV_COMMAND_FIELDS(IoSampleRateCapabilities, (Hid, Hid), (SampleRates::SystemSampleRate, SampleRate),
                       (RateList, SampleRates))
};

/// Description of a routing device.
class RouterInfo : public Command<RouterInfo, 825, 1>
{
    KLV_COMMAND_FIELDS(RouterInfo, (Hid, Hid), (RemoteDeviceType, Type), (std::int32_t, Inputs),
                       (std::int32_t, Outputs), (std::uint32_t, Reserved))
};

/// Asks a routing device for its description.
class RouterInfoReq : public Command<RouterInfoReq, 829>
{
    KLV_COMMAND_WITHOUT_FIELDS(RouterInfoReq)
};

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

/// Whether a RemoteIoUpdate may report this type.
constexpr bool IsIoType(RemoteDeviceType type)
{
    return type == RemoteDeviceType::Modular || type == RemoteDeviceType::FixedFormat ||
           type == RemoteDeviceType::None || type == RemoteDeviceType::Module || type == RemoteDeviceType::AoIP;
}

} // namespace IoUpdate

/// A routing device has appeared, or has gone if the address of its data link (host order) is 0.
class RemoteRouterUpdate : public Command<RemoteRouterUpdate, 827, 1>
{
    KLV_COMMAND_FIELDS(RemoteRouterUpdate, (RemoteDeviceType, Type), (Hid, Hid), (std::uint32_t, Address), (Hid, Owner))
};

/// Length of a chain of boxes: the address (host order) of the box at its far end, and the hops to it. Every node that
/// reads the command counts itself.
class ChainLengthCmd : public Command<ChainLengthCmd, 859>
{
public:
    ChainLengthCmd(std::uint32_t source, std::uint32_t address, std::uint8_t length)
        : mSource(source), mAddress(address), mLength(length)
    {}
    explicit ChainLengthCmd(KLVCommandReadSet& set)
    {
        ReadFields(set);
        ++mLength;
    }

    std::uint32_t GetSource() const { return mSource; }
    std::uint32_t GetAddress() const { return mAddress; }
    /// Not GetLength, which is the length of the value of every command.
    std::uint8_t GetHops() const { return mLength; }
    template <class Self, class Visitor>
    static void VisitFields(Self& self, Visitor&& visitor)
    {
        visitor("mSource", self.mSource);
        visitor("mAddress", self.mAddress);
        visitor("mLength", self.mLength);
    }

private:
    std::uint32_t mSource{};
    std::uint32_t mAddress{};
    std::uint8_t mLength{};
};

/// Tells a box that this link carries the active router.
class IoActiveRouter : public Command<IoActiveRouter, 806>
{
    KLV_COMMAND_WITHOUT_FIELDS(IoActiveRouter)
};

/// Asks a box for the states of its GPIs.
class GpiInfoRequest : public Command<GpiInfoRequest, 858>
{
    KLV_COMMAND_WITHOUT_FIELDS(GpiInfoRequest)
};
