#include "Common/KLV/KeyText.h"

std::string KeyToText(std::uint32_t key)
{
    const std::uint32_t type = key >> 27;
    if (type >= Klv::KEY_KINDS.size()) return "UNKNOWN " + std::to_string(type);
    const auto& [tag, layout, idTag] = Klv::KEY_KINDS[type];
    switch (layout) {
    case Klv::KeyLayout::Numbers:
        return tag + std::to_string((key >> 18) & 0x1FF) + ":D" + std::to_string((key >> 11) & 0x7F) + idTag +
               std::to_string(key & 0x7FF);
    case Klv::KeyLayout::VersionAndId:
        return tag + std::to_string((key >> 22) & 31) + idTag + std::to_string(key & 0x3FFFFF);
    case Klv::KeyLayout::Message:
        break;
    }
    return tag + std::to_string(key & 0xFFFF);
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
    return (text ? text : "<MISSING STRING>.") + std::to_string(location.second);
}
