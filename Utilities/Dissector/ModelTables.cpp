#include "Utilities/Dissector/ModelTables.h"

#include "Common/KLV/CommandIdTexts.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "Common/KLV/Commands/UpdateCommands.h"
#include "Common/KLV/KLVReadSet.h"
#include "Common/KLV/KLVSet.h"
#include "Common/KLV/KeyText.h"
#include "K2Common/K2Heartbeat.h"
#include "KLVStreams/source/KLVTCPStream.h"
#include "MiscSource/GlobalConstants.h"
#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/LinkManager/Heartbeat.h"
#include "OrbModule/Inc/UDPDispatcher/NetworkTimeMessage.h"
#include "OrbModule/Inc/UDPDispatcher/SwitchFabric.h"
#include "Utilities/Dissector/LuaText.h"

#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>

namespace {

constexpr CommandID CommandIds[] = {
#define COMMAND_ID(id, text) id,
#include "Common/KLV/CommandIdRows.inc"
#undef COMMAND_ID
};

template <class Value>
std::string TextOf(const Value& value)
{
    std::ostringstream out;
    out << value;
    return WithoutTrailingBlanks(out.str());
}

/// Texts of all bytes, except those that are the text of the byte 255, which no table has, or the number itself.
void WriteTexts(std::ostream& out, const std::string& table, const std::function<std::string(std::uint8_t)>& textOf)
{
    constexpr std::uint8_t NoValue = 255;
    out << table << " = {";
    for (std::uint32_t number = 0; number < NoValue; ++number) {
        const std::string text = WithoutTrailingBlanks(textOf(static_cast<std::uint8_t>(number)));
        if (text == WithoutTrailingBlanks(textOf(NoValue)) || text == "Unknown(" + std::to_string(number) + ")")
            continue;
        out << LuaKey(number) << LuaText(text) << ", ";
    }
    out << "}\n";
}

void WriteEnumerations(std::ostream& out)
{
    out << "model.texts = {}\n";
    WriteTexts(out, "model.texts.SystemSampleRate",
               [](std::uint8_t number) { return TextOf(static_cast<SampleRates::SystemSampleRate>(number)); });
    WriteTexts(out, "model.texts.Port", [](std::uint8_t number) { return PortText(number); });
    WriteTexts(out, "model.texts.CheckResult",
               [](std::uint8_t number) { return std::string(DeviceCheckResultsCmd("", number).GetResultText()); });
    WriteTexts(out, "model.texts.MasterRouterNotification",
               [](std::uint8_t number) { return SornMasterRouterNotification::Command(number).GetMessage(); });
    WriteTexts(out, "model.texts.LinkType",
               [](std::uint8_t number) { return TextOf(static_cast<K2Heartbeat::LinkType>(number)); });
    WriteTexts(out, "model.texts.RemoteDeviceType",
               [](std::uint8_t number) { return TextOf(ToLinkType(static_cast<RemoteDeviceType>(number))); });
    out << "model.texts.IoStyle = {";
    for (std::uint32_t style = 0; style < IO_STYLE_COUNT; ++style)
        out << LuaKey(style) << LuaText(IoStyleText(style)) << ", ";
    out << "}\n";
}

void WriteIdentities(std::ostream& out)
{
    out << "model.hid_texts = {";
    for (const Hid& hid : {INVALID_HID, LOCAL_DSP_HID})
        out << LuaKey(hid) << LuaText(TextOf(hid)) << ", ";
    out << "}\nmodel.rack_texts = {";
    for (const std::uint32_t rack : {LOCAL_RACK_ID, INVALID_RACK_ID})
        out << LuaKey(rack) << LuaText(WithoutTrailingBlanks(RackText(rack))) << ", ";
    out << "}\n";
}

const char* LayoutName(Klv::KeyLayout layout)
{
    switch (layout) {
    case Klv::KeyLayout::Numbers:
        return "numbers";
    case Klv::KeyLayout::VersionAndId:
        return "id";
    case Klv::KeyLayout::Message:
        break;
    }
    return "message";
}

void WriteKeys(std::ostream& out)
{
    out << "model.command_key_type = " << Klv::COMMAND_KEY_TYPE << "\nmodel.key_kinds = {\n";
    std::uint32_t type = 0;
    for (const auto& [tag, layout, idTag] : Klv::KEY_KINDS) {
        out << "    " << LuaKey(type++) << "{tag = " << LuaText(tag) << ", layout = " << LuaText(LayoutName(layout))
            << ", id_tag = " << LuaText(idTag) << "},\n";
    }
    out << "}\nmodel.command_texts = {\n";
    for (const CommandID id : CommandIds)
        out << "    " << LuaKey(id) << LuaText(CommandIdToText(id)) << ",\n";
    out << "}\n";
}

void WriteStreams(std::ostream& out)
{
    out << "model.stream_ports = {" << NetworkPorts::LOCAL_STREAM << ", " << NetworkPorts::ROUTER_STREAM << ", "
        << NetworkPorts::UPDATE_SERVICE << "}\nmodel.item_limit = " << ItemFramer::MaxLength
        << "\nmodel.string_limit = " << KLVReadSet::MAX_STRING_SIZE << "\n";
}

void WriteDatagrams(std::ostream& out)
{
    using K2Heartbeat::LinkState;
    constexpr std::uint32_t RackMask = 0xFFFFFFFFu << K2Heartbeat::VARIANT_RACK_SHIFT;
    out << "model.link = {ports = {" << NetworkPorts::LINK_OWNER << ", " << NetworkPorts::LINK_GUEST
        << "}, size = " << LinkState::SIZE << ", hid_offset = " << LinkState::HID_OFFSET
        << ", type_offset = " << LinkState::TYPE_OFFSET << ", variant_offset = " << LinkState::VARIANT_OFFSET
        << ", number_mask = " << K2Heartbeat::VARIANT_NUMBER_MASK << ", rate_mask = " << K2Heartbeat::VARIANT_RATE_MASK
        << ", rack_mask = " << RackMask << ", rack_shift = " << K2Heartbeat::VARIANT_RACK_SHIFT
        << ", routing_types = {";
    for (std::uint32_t type = 0; type <= 0xFF; ++type)
        if (IsRoutingDevice(static_cast<K2Heartbeat::LinkType>(type))) out << LuaKey(type) << "true, ";
    out << "}}\nmodel.heartbeat = {port = " << NetworkPorts::MODULE_HEARTBEAT << ", size = " << Heartbeat::MESSAGE_SIZE
        << ", number = " << static_cast<std::uint32_t>(Heartbeat::MESSAGE_TYPE)
        << "}\nmodel.fabric = {port = " << NetworkPorts::SWITCH_FABRIC
        << ", time_number = " << SwitchFabric::NetworkTimeMessage << ", time_size = " << NetworkTimeMessage::SIZE
        << ", time_offset = " << NetworkTimeMessage::TIME_OFFSET << ", texts = {"
        << LuaKey(SwitchFabric::NetworkTimeMessage) << "\"NetworkTimeMessage\"}}\n";
}

} // namespace

void WriteModelTables(std::ostream& out)
{
    WriteStreams(out);
    WriteKeys(out);
    WriteEnumerations(out);
    WriteIdentities(out);
    WriteDatagrams(out);
}
