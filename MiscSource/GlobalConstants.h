#pragma once

#include "MiscSource/Hid.h"

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

// What all of the module speaks of: ports, streams, device types, rates, patch states, addresses.
// Plain values and free functions, without state and without threads. All texts that end in a blank keep it.
// Addresses are IPv4 addresses in host order throughout.

/// A port number as a plain byte, 0xFF unknown: on the wire, in texts, in signals and at the far end of a cable. This
/// module's own ports are a Routing::PortsEnum, and a LinkIndex in the link layer.
using UINT8GIGEPORT = std::uint8_t;
constexpr UINT8GIGEPORT UNKNOWN_GIGE_PORT = 0xFF;

/// Number of an audio port on a device, 0xFFF unknown.
using AudioPortNumber = std::uint16_t;
constexpr AudioPortNumber UNKNOWN_AUDIO_PORT = 0xFFF;

namespace Routing {

/// A port of this module. It indexes tables and passes for a UINT8GIGEPORT; the way back is ToPortsEnum.
enum PortsEnum : UINT8GIGEPORT { ORB_PORT = 0, PRIMARY_PORT = 1, SECONDARY_PORT = 2, UNKNOWN_PORT = UNKNOWN_GIGE_PORT };

/// Number of link indexes.
constexpr std::uint32_t MAX_ORB_K2_PORTS = 2;
/// Number of ports of the module, the internal one included.
constexpr std::uint32_t PORT_COUNT = 3;
/// TDM slots of a port.
constexpr std::uint32_t SLOTS_PER_PORT = 512;

std::ostream& operator<<(std::ostream& out, PortsEnum port);

} // namespace Routing

/// A link as the link layer numbers them: 0 for k2link0, 1 for k2link1. Its driver may report others.
enum class LinkIndex : UINT8GIGEPORT {};

constexpr UINT8GIGEPORT ToNumber(LinkIndex link)
{
    return static_cast<UINT8GIGEPORT>(link);
}
constexpr Routing::PortsEnum ToPortsEnum(UINT8GIGEPORT number)
{
    return static_cast<Routing::PortsEnum>(number);
}
constexpr Routing::PortsEnum ToPort(LinkIndex link)
{
    return ToPortsEnum(static_cast<UINT8GIGEPORT>(ToNumber(link) + 1));
}
/// The link of a port; the internal port 0 has none and gives 0xFF.
constexpr LinkIndex ToLinkIndex(UINT8GIGEPORT port)
{
    return static_cast<LinkIndex>(port - 1);
}
/// The links 0 to count - 1.
std::vector<LinkIndex> FirstLinks(std::uint32_t count);
/// True for the primary link, of a port (not of a link index).
constexpr bool IsPrimaryPort(Routing::PortsEnum port)
{
    return port == Routing::PRIMARY_PORT;
}
/// The other link of a link port: 2 for 1, else 1.
constexpr Routing::PortsEnum OtherLinkPort(Routing::PortsEnum port)
{
    return port == Routing::PRIMARY_PORT ? Routing::SECONDARY_PORT : Routing::PRIMARY_PORT;
}

/// "Pri Korvo " and its like, for a Routing::PortsEnum; any other value gives "UNKNOWN ".
std::string PortText(UINT8GIGEPORT port);
/// "H0 " and its like, for a link or for a port at the far end of one; 0xFF gives "UNKNOWN_PORT ".
std::string LinkPortText(UINT8GIGEPORT number);
inline std::string LinkPortText(LinkIndex link)
{
    return LinkPortText(ToNumber(link));
}
/// "A5 " and its like; 0xFFF gives "UNKNOWN_PORT ".
std::string AudioPortText(AudioPortNumber port);
/// "192.2 " and its like, "LOCAL_RACK_ID " or "INVALID_RACK_ID ".
std::string RackText(std::uint32_t rackId);
/// "1.63.5.0" for 0x013F0500.
std::string AddressText(std::uint32_t address);
/// "true" or "false".
constexpr const char* FlagText(bool flag)
{
    return flag ? "true" : "false";
}

enum class StreamType : std::uint8_t {
    UNKNOWN_STREAM = 0,
    LOCAL_LINK = 1,
    MASTER_LINK = 2,
    SLAVE_LINK = 3,
    UPDATE_LINK = 4
};
std::ostream& operator<<(std::ostream& out, StreamType type);

namespace K2Heartbeat {

/// The device type that a link heartbeat carries; any other byte can arrive and counts as an I/O device.
enum LinkType : std::uint8_t {
    K2_NO_TYPE = 0,
    K2_ROUTER_TYPE = 1,
    K2_FIXED_FORMAT_TYPE = 2,
    K2_MODULAR_TYPE = 3,
    K2_MODULE_TYPE = 4,
    K2_HUB_TYPE = 5,
    K2_ORB_TYPE = 6,
    K2_AOIP_TYPE = 7
};
std::ostream& operator<<(std::ostream& out, LinkType type);

constexpr bool IsRoutingDevice(LinkType type)
{
    return type == K2_ROUTER_TYPE || type == K2_HUB_TYPE || type == K2_ORB_TYPE;
}
constexpr bool IsIoDevice(LinkType type)
{
    return type != K2_NO_TYPE && !IsRoutingDevice(type);
}
constexpr bool IsHub(LinkType type)
{
    return type == K2_HUB_TYPE;
}
constexpr bool IsOrb(LinkType type)
{
    return type == K2_ORB_TYPE;
}

} // namespace K2Heartbeat

/// The device type inside the remote update commands.
enum class RemoteDeviceType : std::uint8_t {
    Modular = 0,
    FixedFormat = 1,
    None = 2,
    Router = 3,
    Module = 4,
    Hub = 5,
    Orb = 6,
    AoIP = 7,
    Unknown = 8
};
K2Heartbeat::LinkType ToLinkType(RemoteDeviceType type);
RemoteDeviceType ToRemoteDeviceType(K2Heartbeat::LinkType type);
/// True for the types that RemoteRouterUpdate reports: router, hub, Orb.
constexpr bool IsRoutingRemoteType(RemoteDeviceType type)
{
    return type == RemoteDeviceType::Router || type == RemoteDeviceType::Hub || type == RemoteDeviceType::Orb;
}

namespace SampleRates {

/// Any other word can arrive from the network and is kept as it is.
enum SystemSampleRate : std::int32_t { RATE_48K = 0, RATE_96K = 1, RATE_44K1 = 2, RATE_88K2 = 3 };
std::ostream& operator<<(std::ostream& out, SystemSampleRate rate);

constexpr bool IsDoubleRate(SystemSampleRate rate)
{
    return rate == RATE_96K || rate == RATE_88K2;
}
constexpr bool Is44k1Family(SystemSampleRate rate)
{
    return rate == RATE_44K1 || rate == RATE_88K2;
}
/// The single rate of the family; an unknown rate gives 48 kHz.
constexpr SystemSampleRate GetBaseRate(SystemSampleRate rate)
{
    return Is44k1Family(rate) ? RATE_44K1 : RATE_48K;
}

} // namespace SampleRates

namespace Korvo {

enum PatchState : std::uint8_t {
    PatchNotSent = 0,
    PatchSent = 1,
    PatchAwaitingReply = 2,
    PatchRetrySent = 3,
    PatchSuccess = 4,
    PatchReserved = 5
};
std::ostream& operator<<(std::ostream& out, PatchState state);

} // namespace Korvo

/// For programs that show the state of a device or port as the audio network sees it; unused in this module.
enum class IOKorvoStatus : std::uint8_t {
    Offline = 0,
    Online = 1,
    AccessDenied = 2,
    PatchNotValid = 3,
    PatchConflict = 4,
    UnsupportedSampleRate = 5
};
std::ostream& operator<<(std::ostream& out, IOKorvoStatus status);

constexpr std::uint32_t IO_STYLE_COUNT = 8;
/// Text of an I/O port style, "Input" and its like; from IO_STYLE_COUNT on "Invalid" and a log line.
const char* IoStyleText(std::uint32_t style);
/// Text of an I/O card type, "Mic" and its like; above 16 "InvalidType" and a log line. Unused in this module.
const char* IoCardTypeText(std::uint32_t type);

/// Address of a port side of a rack: its 5.0 for the primary port, its 6.0 for any other; 0 for INVALID_HID.
constexpr std::uint32_t GetPortAddress(Hid hid, Routing::PortsEnum port)
{
    return hid == INVALID_HID ? 0 : (hid & 0xFFFF0000) + (IsPrimaryPort(port) ? 0x500u : 0x600u);
}

/// The two ends of a link share a /24 network that follows from their identities alone: the end with the higher
/// id owns it and takes host 254, the other takes its port number plus 1.
/// @param rack our rack id; @param linkIndex our link index; @param remoteId the driver's id of the neighbour,
/// which is twice its rack id; @param remotePort its port number. An id of 0xFFFFFFFF gives address 0: no link.
std::uint32_t GetLinkLocalAddress(std::uint32_t rack, UINT8GIGEPORT linkIndex, std::uint32_t remoteId,
                                  std::uint8_t remotePort, bool primary);
std::uint32_t GetLinkRemoteAddress(std::uint32_t rack, UINT8GIGEPORT linkIndex, std::uint32_t remoteId,
                                   std::uint8_t remotePort, bool primary);
/// True if the end with this rack id owns the network of a link to remoteId; equality makes us the owner.
constexpr bool OwnsLinkNetwork(std::uint32_t rack, std::uint32_t remoteId)
{
    return !(2 * rack < remoteId);
}
