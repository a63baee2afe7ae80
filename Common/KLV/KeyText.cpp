#include "Common/KLV/KeyText.h"

#include <array>

namespace {

std::string Number(std::uint32_t value)
{
    return std::to_string(value);
}

std::string ThreeNumbers(const char* tag, std::uint32_t key)
{
    return tag + Number((key >> 18) & 0x1FF) + ":D" + Number((key >> 11) & 0x7F) + ":I" + Number(key & 0x7FF);
}

std::string VersionAndId(const char* tag, const char* idTag, std::uint32_t key)
{
    return tag + Number((key >> 22) & 31) + idTag + Number(key & 0x3FFFFF);
}

} // namespace

std::string KeyToText(std::uint32_t key)
{
    switch (key >> 27) {
    case 0:
        return ThreeNumbers("MEM:F", key);
    case 1:
        return VersionAndId("EVT:V", ":E", key);
    case 2:
        return ThreeNumbers("FEAT:F", key);
    case 3:
        return ThreeNumbers("PATH:F", key);
    case 4:
        return ThreeNumbers("FS:F", key);
    case 5:
        return VersionAndId("CMD:V", ":I", key);
    case 6:
        return ThreeNumbers("PAN:F", key);
    case 7:
        return "DSP_MESSAGE:M" + Number(key & 0xFFFF);
    default:
        return "UNKNOWN " + Number(key >> 27);
    }
}

std::string LocationToText(const DeskLocation& location)
{
    constexpr std::array<const char*, 25> Texts = {"MCS.",
                                                   "PANEL_NIOS.",
                                                   "PANEL_GEODE.",
                                                   "DSP_CHAN0.",
                                                   "DSP_CHAN1.",
                                                   "DSP_CHAN2.",
                                                   "DSP_BUSSPROC.",
                                                   "DESK_PC.",
                                                   "MASTER ROUTER PATCH LINK",
                                                   "DATA_DAEMON.",
                                                   "DANGLY_GEODE.",
                                                   "DANGLY_NIOS.",
                                                   "RESET_PANEL",
                                                   "LOCAL_ROUTER_STATUS_LINK",
                                                   "ROUTER_DATABASE_LINK",
                                                   "MCS_AWACS_LINK",
                                                   nullptr,
                                                   "REMOTE_MASTER_ROUTER",
                                                   "DSP_INACTIVE_BUSS",
                                                   "DSP_INACTIVE_CHAN0",
                                                   "DSP_INACTIVE_CHAN1",
                                                   "DSP_INACTIVE_CHAN2",
                                                   "SNMP_AGENT",
                                                   "MASTER_DMD",
                                                   "OSTREL_TENDER"};
    const char* text = location.first < Texts.size() ? Texts[location.first] : nullptr;
    if (location.first == 65535) text = "UNKNOWN.";
    return (text ? text : "<MISSING STRING>.") + Number(location.second);
}
