#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <utility>

namespace Klv {

/// How the 27 bits below the key type are laid out.
enum class KeyLayout : std::uint8_t {
    /// Nine, seven and eleven bits.
    Numbers,
    /// Five bits of version, 22 of id.
    VersionAndId,
    /// A number in the lower 16 bits.
    Message
};

/// A family of items. The second tag precedes the id.
struct KeyKind
{
    const char* tag;
    KeyLayout layout;
    const char* idTag;
};

/// By key type. A type beyond is unknown.
constexpr std::array<KeyKind, 8> KEY_KINDS{{{"MEM:F", KeyLayout::Numbers, ":I"},
                                            {"EVT:V", KeyLayout::VersionAndId, ":E"},
                                            {"FEAT:F", KeyLayout::Numbers, ":I"},
                                            {"PATH:F", KeyLayout::Numbers, ":I"},
                                            {"FS:F", KeyLayout::Numbers, ":I"},
                                            {"CMD:V", KeyLayout::VersionAndId, ":I"},
                                            {"PAN:F", KeyLayout::Numbers, ":I"},
                                            {"DSP_MESSAGE:M", KeyLayout::Message, ""}}};

} // namespace Klv

/// "CMD:V0:I800" and its like, for any key.
std::string KeyToText(std::uint32_t key);

/// Where a panel event comes from: a location and a number.
using DeskLocation = std::pair<std::uint32_t, std::uint32_t>;
/// "MCS.1" and its like. Unused: this module gets no panel events.
std::string LocationToText(const DeskLocation& location);
