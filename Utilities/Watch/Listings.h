#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The listings of the module's shell as values. All functions here are pure, take any text, and give only what they
/// have understood: a text that is cut or not a listing gives less, never an error.
namespace watch {

/// Side of the module from which something comes or to which it goes.
enum class Port { Orb, Primary, Secondary, Unknown };
constexpr std::size_t PortCount = 3;

std::string_view PortName(Port port);

/// State of one device on one link.
struct DeviceLink
{
    bool online{};
    std::string address{};
};

/// A record of `sio` or `sr`.
struct Device
{
    /// As the shell shows it, without blanks: "0.32:1".
    std::string hid{};
    std::string type{};
    /// Plugged into a link of the module, rather than reported by another.
    bool local = false;
    DeviceLink primary{};
    DeviceLink secondary{};
    /// Empty for a local device.
    std::string owner{};
    std::string rate{};
    std::vector<std::string> rates{};
};

/// One end of a patch.
struct AudioPort
{
    std::uint32_t hidNumber{};
    std::string hid{};
    /// "Input", "Output" and so on.
    std::string style{};
    std::uint32_t index{};
};

struct SlotList
{
    Port port = Port::Unknown;
    std::vector<std::uint32_t> slots{};
};

enum class PatchState { NotSent, Sent, AwaitingReply, RetrySent, Success, Reserved, Invalid };
std::string_view PatchStateName(PatchState state);

/// A record of `ps`.
struct Patch
{
    AudioPort source{};
    AudioPort destination{};
    PatchState primary = PatchState::NotSent;
    PatchState secondary = PatchState::NotSent;
    SlotList primaryLink{};
    SlotList secondaryLink{};
    SlotList swap{};

    /// The better of the two links: success, reserved, sent, not sent.
    PatchState Best() const;
    bool AwaitsAnswer() const;
};

/// A TDM slot in use, of `rs`.
struct Slot
{
    std::uint32_t number{};
    std::string sourceHid{};
    std::uint32_t sourcePort{};
    SlotList from{};
    std::size_t destinations{};
};

using SlotTable = std::array<std::vector<Slot>, PortCount>;

/// Samples of a sink of the FPGA and what feeds them, of `adma/status`.
struct Run
{
    /// Alias of the source, or "0" for silence.
    std::string source{};
    std::uint32_t sourceFirst{};
    std::uint32_t sourceLast{};
    std::uint32_t first{};
    std::uint32_t last{};

    bool IsSilence() const { return source == "0"; }
    std::uint32_t Length() const { return last - first + 1; }
};

struct Sink
{
    std::string name{};
    std::vector<Run> runs{};
};

/// A line of `clock/status`.
struct ClockSource
{
    std::uint32_t id{};
    /// Alias of the source, empty if it has none.
    std::string name{};
    bool enabled{};
    std::uint32_t measure{};
    bool stable{};
    /// "", "locking" or "locked".
    std::string lock{};
    bool selected{};
};

struct ClockTable
{
    /// Known only while a source is selected: the listing says nothing of it beside the internal clock.
    bool autoSelectOff = false;
    /// In order of priority.
    std::vector<ClockSource> sources{};
};

/// A record of `sio` or `sr`; nothing if the text is none.
std::optional<Device> ParseDevice(std::string_view text);
/// A record of `ps`; nothing if the text is none.
std::optional<Patch> ParsePatch(std::string_view text);
SlotTable ParseSlots(std::string_view text);
std::vector<Sink> ParseRoutes(std::string_view text);
ClockTable ParseClocks(std::string_view text);

/// "0.32:1 " without blanks at its ends.
std::string_view Trim(std::string_view text);

} // namespace watch
