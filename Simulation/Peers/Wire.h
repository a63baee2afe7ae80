#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace peers {

using Bytes = std::vector<std::uint8_t>;

/// One command in wire format: an item of key type 5.
struct Command
{
    std::uint32_t id = 0;
    std::uint32_t version = 0;
    Bytes value;
};

/// Puts the fields of a command together, little-endian, without names and padding. The peers write and read the
/// wire by this class and the next, and not by the classes of the module, so that a wrong layout there shows here.
class Writer
{
public:
    explicit Writer(std::uint32_t id, std::uint32_t version = 0) : mCommand{id, version, {}} {}

    Writer& U8(std::uint32_t value) { return Little(value, 1); }
    Writer& U16(std::uint32_t value) { return Little(value, 2); }
    Writer& U32(std::uint32_t value) { return Little(value, 4); }
    Writer& Text(const std::string& text);
    Writer& List16(const std::vector<std::uint32_t>& values);
    Writer& List32(const std::vector<std::uint32_t>& values);
    Command Take() { return mCommand; }

private:
    Writer& Little(std::uint32_t value, unsigned width);
    Command mCommand;
};

/// Takes fields out of a command's value; beyond its end everything is 0 and empty, and Failed.
class Reader
{
public:
    explicit Reader(const Command& command) : mValue(command.value) {}

    std::uint8_t U8() { return static_cast<std::uint8_t>(Little(1)); }
    std::uint16_t U16() { return static_cast<std::uint16_t>(Little(2)); }
    std::uint32_t U32() { return Little(4); }
    std::string Text();
    bool Failed() const { return mFailed; }

private:
    std::uint32_t Little(unsigned width);
    const Bytes& mValue;
    std::size_t mPosition = 0;
    bool mFailed = false;
};

/// The whole item: key, length, value.
Bytes ToItem(const Command& command);
/// The first whole item of the bytes, taken out of them; nothing if there is none yet.
/// @param broken set if the bytes are no commands.
std::optional<Command> TakeItem(Bytes& bytes, bool& broken);

/// "20 03 00 28".
std::string ToHex(const Bytes& bytes);
std::optional<Bytes> FromHex(const std::string& text);

} // namespace peers
