#include "MiscSource/GlobalConstants.h"

#include "Audit/Audit.h"

#include <array>
#include <cstdio>
#include <ostream>

namespace {

std::string UnknownText(std::uint32_t number)
{
    return "Unknown(" + std::to_string(number) + ")";
}

template <std::size_t Size>
std::string TextOr(const std::array<const char*, Size>& texts, std::uint32_t number, const std::string& other)
{
    return number < Size ? texts[number] : other;
}

constexpr std::uint32_t NoId = 0xFFFFFFFF;
constexpr std::uint32_t SecondaryNetwork = 0x2000;
constexpr std::uint32_t OwnerHost = 0xFE;

} // namespace

std::ostream& operator<<(std::ostream& out, const Hid& hid)
{
    if (hid == INVALID_HID) return out << "INVALID_HID ";
    if (hid == LOCAL_DSP_HID) return out << "LOCAL_DSP_HID ";
    const std::uint32_t value = hid;
    char text[32];
    if (value < 0xFFF) {
        std::snprintf(text, sizeof text, "0x%x(%u) ", value, value);
    } else {
        std::snprintf(text, sizeof text, "%u.%u:%x ", value >> 24, (value >> 16) & 0xFF, value & 0xFFFF);
    }
    return out << text;
}

std::ostream& Routing::operator<<(std::ostream& out, PortsEnum port)
{
    return out << PortText(port);
}

std::vector<LinkIndex> FirstLinks(std::uint32_t count)
{
    std::vector<LinkIndex> links;
    for (std::uint32_t i = 0; i < count; ++i)
        links.push_back(static_cast<LinkIndex>(i));
    return links;
}

std::string PortText(UINT8GIGEPORT port)
{
    constexpr std::array<const char*, 3> Texts = {"ORB PORT ", "Pri Korvo ", "Sec Korvo "};
    return TextOr(Texts, port, "UNKNOWN ");
}

std::string LinkPortText(UINT8GIGEPORT number)
{
    return number == UNKNOWN_GIGE_PORT ? "UNKNOWN_PORT " : "H" + std::to_string(number) + " ";
}

std::string AudioPortText(AudioPortNumber port)
{
    return port == UNKNOWN_AUDIO_PORT ? "UNKNOWN_PORT " : "A" + std::to_string(port) + " ";
}

std::string RackText(std::uint32_t rackId)
{
    if (rackId == LOCAL_RACK_ID) return "LOCAL_RACK_ID ";
    if (rackId == INVALID_RACK_ID) return "INVALID_RACK_ID ";
    return std::to_string((rackId >> 8) & 0xFF) + "." + std::to_string(rackId & 0xFF) + " ";
}

std::string AddressText(std::uint32_t address)
{
    char text[16];
    std::snprintf(text, sizeof text, "%u.%u.%u.%u", address >> 24, (address >> 16) & 0xFF, (address >> 8) & 0xFF,
                  address & 0xFF);
    return text;
}

std::ostream& operator<<(std::ostream& out, StreamType type)
{
    constexpr std::array<const char*, 5> Texts = {"UNKNOWN_STREAM ", "LOCAL_LINK ", "MASTER_LINK ", "SLAVE_LINK ",
                                                  "UPDATE_LINK "};
    const auto number = static_cast<std::uint32_t>(type);
    return out << TextOr(Texts, number, UnknownText(number));
}

std::ostream& K2Heartbeat::operator<<(std::ostream& out, LinkType type)
{
    constexpr std::array<const char*, 8> Texts = {"Unknown(0)",   "Router ",  "FixedFormat ", "Modular ",
                                                  "KorvoModule ", "KorvoHub", "OrbDsp",       "AoIP"};
    return out << TextOr(Texts, type, UnknownText(type));
}

K2Heartbeat::LinkType ToLinkType(RemoteDeviceType type)
{
    using namespace K2Heartbeat;
    constexpr std::array<LinkType, 8> Types = {K2_MODULAR_TYPE, K2_FIXED_FORMAT_TYPE, K2_NO_TYPE,  K2_ROUTER_TYPE,
                                               K2_MODULE_TYPE,  K2_HUB_TYPE,          K2_ORB_TYPE, K2_AOIP_TYPE};
    const auto number = static_cast<std::size_t>(type);
    return number < Types.size() ? Types[number] : K2_NO_TYPE;
}

RemoteDeviceType ToRemoteDeviceType(K2Heartbeat::LinkType type)
{
    using Remote = RemoteDeviceType;
    constexpr std::array<Remote, 8> Types = {Remote::Unknown, Remote::Router, Remote::FixedFormat, Remote::Modular,
                                             Remote::Module,  Remote::Hub,    Remote::Orb,         Remote::AoIP};
    return type < Types.size() ? Types[type] : Remote::Unknown;
}

std::ostream& SampleRates::operator<<(std::ostream& out, SystemSampleRate rate)
{
    constexpr std::array<const char*, 4> Texts = {"48kHz", "96kHz", "44.1kHz", "88.2kHz"};
    return out << TextOr(Texts, static_cast<std::uint32_t>(rate), "UNKNOWN SAMPLE RATE");
}

std::ostream& Korvo::operator<<(std::ostream& out, PatchState state)
{
    constexpr std::array<const char*, 6> Texts = {"Patch Not Sent ",   "Patch Sent ",    "Patch Awaiting Reply ",
                                                  "Patch Retry Sent ", "Patch Success ", "Patch Reserved "};
    return out << TextOr(Texts, state, "Invalid Patch State ");
}

std::ostream& operator<<(std::ostream& out, IOKorvoStatus status)
{
    constexpr std::array<const char*, 6> Texts = {"Offline",       "Online",        "AccessDenied",
                                                  "PatchNotValid", "PatchConflict", "UnsupportedSampleRate"};
    const auto number = static_cast<std::uint32_t>(status);
    if (number >= Texts.size()) AUDIT_LOG(Fault, "Unknown IOKorvoStatus( %d )\n", static_cast<int>(number));
    return out << TextOr(Texts, number, "Unknown");
}

const char* IoStyleText(std::uint32_t style)
{
    constexpr std::array<const char*, IO_STYLE_COUNT> Texts = {"Invalid", "Input",      "Output", "GPI",
                                                               "GPO",     "DeskOutput", "KPI",    "KPO"};
    if (style < Texts.size()) return Texts[style];
    AUDIT_LOG(Fault, "Unexpected IOStyleCount( %d )\n", static_cast<int>(style));
    return Texts[0];
}

const char* IoCardTypeText(std::uint32_t type)
{
    constexpr std::array<const char*, 17> Texts = {
        "InvalidType", "Mic", "Line",  "AES",       "MADI",    "DolbyE",      "Opto",      "Relay", "Desk",
        "SDI",         "KPB", "Dante", "SoundGrid", "MADISRC", "KorvoModule", "EmberGPIO", "AoIP"};
    if (type < Texts.size()) return Texts[type];
    AUDIT_LOG(Fault, "Unexpected IOTypeID( %d )\n", static_cast<int>(type));
    return Texts[0];
}

std::uint32_t GetLinkLocalAddress(std::uint32_t rack, UINT8GIGEPORT linkIndex, std::uint32_t remoteId,
                                  std::uint8_t remotePort, bool primary)
{
    if (rack == NoId || remoteId == NoId) return 0;
    const std::uint32_t side = primary ? 0 : SecondaryNetwork;
    if (OwnsLinkNetwork(rack, remoteId)) return (rack << 14) | (std::uint32_t{linkIndex} << 8) | OwnerHost | side;
    return (remoteId << 13) | (std::uint32_t{remotePort} << 8) | (linkIndex + 1u) | side;
}

std::uint32_t GetLinkRemoteAddress(std::uint32_t rack, UINT8GIGEPORT linkIndex, std::uint32_t remoteId,
                                   std::uint8_t remotePort, bool primary)
{
    if (rack == NoId || remoteId == NoId) return 0;
    const std::uint32_t side = primary ? 0 : SecondaryNetwork;
    if (OwnsLinkNetwork(rack, remoteId))
        return (rack << 14) | (std::uint32_t{linkIndex} << 8) | (remotePort + 1u) | side;
    return (remoteId << 13) | (std::uint32_t{remotePort} << 8) | OwnerHost | side;
}
