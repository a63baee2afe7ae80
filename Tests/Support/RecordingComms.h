#pragma once

#include "Common/KLV/Commands/Commands.h"
#include "MiscSource/LinkPatch.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"
#include "Tests/Support/MemoryStream.h"

#include <atomic>
#include <cstdio>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// Devices by the names that a test gives them. One without a name is eight hexadecimal digits.
class DeviceNames
{
public:
    explicit DeviceNames(std::map<std::string, Hid> names = {}) : mNames(std::move(names)) {}

    std::string NameOf(Hid hid) const
    {
        for (const auto& [name, known] : mNames)
            if (known == hid) return name;
        char text[9];
        std::snprintf(text, sizeof text, "%08x", std::uint32_t{hid});
        return text;
    }
    Hid HidOf(const std::string& name) const
    {
        const auto known = mNames.find(name);
        return known != mNames.end() ? known->second : Hid(static_cast<std::uint32_t>(std::stoul(name, nullptr, 16)));
    }

private:
    std::map<std::string, Hid> mNames;
};

/// "1[4 5]"
inline std::string LinkText(const Routing::GigeAndSlots& link)
{
    std::string text = std::to_string(link.port) + '[';
    for (const std::uint32_t slot : link.slots)
        text += (text.back() == '[' ? "" : " ") + std::to_string(slot);
    return text + ']';
}

/// Commands as text: those that are listed with all their fields, in the order of the wire.
class CommandText
{
public:
    explicit CommandText(DeviceNames names) : mNames(std::move(names)) {}

    std::string operator()(const DeskCommand& command) const
    {
        std::string text;
        const bool isListed =
            Put<AudioPatchFailedCmd>(text, command, "failed") ||
            Put<AudioPatchRetryForHidCmd>(text, command, "retry") ||
            Put<DevicesToCheckAndUpdateCmd>(text, command, "check") || Put<OstrelPingCmd>(text, command, "ping") ||
            Put<IoBoxInternalsCmd>(text, command, "internals") || Put<IoInfoDevReq>(text, command, "describe") ||
            Put<IoInfoReqEx>(text, command, "IO_INFO_REQ_EX") ||
            Put<SornMixedHIDError>(text, command, "SORN_MIXED_HID_ERROR") ||
            Put<PatchSucessfulCmd>(text, command, "success") || Put<PortBitmapCmd>(text, command, "bitmap") ||
            Put<RemoteCableStateCmd>(text, command, "cable") || Put<RemoteIoUpdate>(text, command, "io") ||
            Put<RemoteRouterUpdate>(text, command, "router") || Put<RestartMCSLinkCmd>(text, command, "restart") ||
            Put<RouterInfo>(text, command, "info") || Put<RouterPatchAudio>(text, command, "") ||
            Put<SornMasterRouterNotification::Command>(text, command, "notification");
        if (dynamic_cast<const ForwardToActiveCmd*>(&command)) return "forward" + BytesOf(command);
        return isListed ? text : CommandIdToText(command.GetCommandId());
    }

private:
    template <class Command>
    bool Put(std::string& text, const DeskCommand& command, const char* name) const
    {
        const auto* known = dynamic_cast<const Command*>(&command);
        if (known) text = name + TextOf(*known);
        return known != nullptr;
    }

    /// The whole item as it would go out.
    static std::string BytesOf(const DeskCommand& command)
    {
        MemoryStream item;
        command.WriteTo(item);
        std::ostringstream text;
        for (const std::uint8_t byte : item.bytes)
            text << ' ' << std::hex << int{byte};
        return text.str();
    }

    std::string TextOf(Hid hid) const { return ' ' + mNames.NameOf(hid); }
    std::string TextOf(const std::string& text) const { return " '" + text + "'"; }
    std::string TextOf(const IoPort& port) const
    {
        return TextOf(port.GetHid()) + '/' + std::to_string(port.GetIndex());
    }
    std::string TextOf(const PortBitmapBlock& block) const
    {
        return block.word1 || block.word2 || block.word3 || block.word4 ? " a block" : "";
    }
    std::string TextOf(const std::pair<const std::uint16_t, PortBitmapEntry>& entry) const
    {
        return TextOf(entry.first) + (entry.second.secondary ? "sec" : "pri") +
               (entry.second.word == 0xFFFFFFFF ? "" : TextOf(entry.second.word));
    }
    std::string TextOf(const RemoteCableStateCmd& cable) const
    {
        return TextOf(cable.GetHid()) + (cable.GetPrimary() ? " pri " : " sec ") + (cable.GetOnline() ? "on" : "off");
    }
    std::string TextOf(const RouterPatchAudio& patch) const
    {
        const PatchSource& source = patch.GetSource();
        const std::string link = LinkText({source.GetLink(), source.GetSlots()});
        return (patch.GetMake() ? "make" : "break") + TextOf(source.GetPort()) + (link == "0[]" ? "" : " at " + link) +
               " to" + TextOf(patch.GetDest()) +
               (patch.GetOrig() == source.GetPort() ? "" : " orig" + TextOf(patch.GetOrig())) +
               (patch.GetUseMe() ? " use-me" : "");
    }
    template <class Value>
    std::string TextOf(const Value& value) const
    {
        std::string text;
        if constexpr (std::is_enum_v<Value> || std::is_arithmetic_v<Value>) {
            const auto number = static_cast<std::uint32_t>(value);
            text = number <= 0xFFFF ? ' ' + std::to_string(number) : TextOf(Hid(number));
        } else {
            Value::VisitFields(value, [&](const std::string& name, const auto& field) {
                text += name == "mAddress" ? AddressOf(field) : TextOf(field);
            });
        }
        return text;
    }
    template <template <class...> class List, class... Of>
    std::string TextOf(const List<Of...>& list) const
    {
        std::string text;
        for (const auto& element : list)
            text += TextOf(element);
        return text;
    }
    std::string AddressOf(std::uint32_t address) const { return ' ' + AddressText(address); }
    template <class Value>
    std::string AddressOf(const Value& value) const
    {
        return TextOf(value);
    }

    DeviceNames mNames;
};

/// A test double of the comms. Gives what is asked of them as text to a function, on the caller's thread:
/// "P1 IO_INFO_REQ" for the local stream of port 1, "master1 ...", "slave 1.2.5.0 ...", "update ...",
/// "connect 1.63.1.0 0 49190", "disconnect 1", "disconnect slave 1.2.5.0".
class RecordingComms : public iOrbKLVComms
{
public:
    using Record = std::function<void(const std::string&)>;

    RecordingComms(Record record, DeviceNames names) : mRecord(std::move(record)), mText(std::move(names)) {}

    void Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) override
    {
        mRecord("connect " + AddressText(address) + ' ' + std::to_string(port) + ' ' + std::to_string(tcpPort));
    }
    void Disconnect(UINT8GIGEPORT port) override { mRecord("disconnect " + std::to_string(port)); }
    void Disconnect(const StreamName& stream) override { mRecord("disconnect " + TextOf(stream)); }
    StreamState GetState(const StreamName&) override { return mState; }
    bool Send(const StreamName& stream, const DeskCommand& command) override
    {
        mRecord(TextOf(stream) + ' ' + mText(command));
        return true;
    }

    /// Of the stream to any neighbour.
    std::atomic<StreamState> mState{StreamState::None};

private:
    static std::string TextOf(const StreamName& stream)
    {
        if (stream.type == LOCAL_LINK) return 'P' + std::to_string(stream.port);
        if (stream.type == MASTER_LINK) return "master" + std::to_string(stream.port);
        if (stream.type == SLAVE_LINK) return "slave " + AddressText(stream.address);
        return stream.type == UPDATE_LINK ? "update" : "no stream";
    }

    Record mRecord;
    CommandText mText;
};
