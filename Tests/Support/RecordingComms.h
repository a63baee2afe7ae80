#pragma once

#include "Common/KLV/CommandContainer.h"
#include "Common/KLV/Commands/Commands.h"
#include "MiscSource/LinkPatch.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <atomic>
#include <functional>
#include <iomanip>
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
        for (const auto& [name, known] : mNames) {
            if (known == hid) return name;
        }
        std::ostringstream text;
        text << std::hex << std::setw(8) << std::setfill('0') << std::uint32_t{hid};
        return text.str();
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
        CommandContainer item;
        command.WriteTo(item);
        std::vector<std::uint8_t> bytes(item.GetLength() - 4);
        item.ReadData(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
        std::ostringstream text;
        for (const std::uint8_t byte : bytes)
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
        if constexpr (std::is_enum_v<Value>) {
            text = TextOf(static_cast<std::uint32_t>(value));
        } else if constexpr (std::is_arithmetic_v<Value>) {
            text = value <= 0xFFFF ? ' ' + std::to_string(value) : TextOf(Hid(static_cast<std::uint32_t>(value)));
        } else if constexpr (IsList<Value>(0)) {
            for (const auto& element : value)
                text += TextOf(element);
        } else {
            Value::VisitFields(value, [&](const std::string& name, const auto& field) {
                text += name == "mAddress" ? AddressOf(field) : TextOf(field);
            });
        }
        return text;
    }
    template <class Value>
    static constexpr auto IsList(int) -> decltype(std::declval<Value>().begin(), true)
    {
        return true;
    }
    template <class Value>
    static constexpr bool IsList(...)
    {
        return false;
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
    StreamState GetState(const StreamName&) override
    {
        if (!mExists) return StreamState::None;
        return mClosing ? StreamState::Closing : StreamState::Open;
    }
    bool Send(const StreamName& stream, const DeskCommand& command) override
    {
        mLast = &command;
        mRecord(TextOf(stream) + ' ' + mText(command));
        return true;
    }

    /// Whether there is a stream to a neighbour, and whether it is being shut down.
    std::atomic<bool> mExists{false};
    std::atomic<bool> mClosing{false};
    const DeskCommand* mLast = nullptr;

private:
    static std::string TextOf(const StreamName& stream)
    {
        switch (stream.type) {
        case LOCAL_LINK:
            return 'P' + std::to_string(stream.port);
        case MASTER_LINK:
            return "master" + std::to_string(stream.port);
        case SLAVE_LINK:
            return "slave " + AddressText(stream.address);
        case UPDATE_LINK:
            return "update";
        default:
            return "no stream";
        }
    }

    Record mRecord;
    CommandText mText;
};
