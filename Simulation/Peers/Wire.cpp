#include "Simulation/Peers/Wire.h"

#include <cctype>

namespace peers {

namespace {

constexpr std::size_t HeaderSize = 8;
constexpr std::uint32_t MaxValueSize = 16u << 20;

std::uint32_t LittleAt(const Bytes& bytes, std::size_t position, unsigned width)
{
    std::uint32_t value = 0;
    for (unsigned i = 0; i < width; ++i)
        value |= std::uint32_t{bytes[position + i]} << (8 * i);
    return value;
}

void AppendLittle(Bytes& bytes, std::uint32_t value, unsigned width)
{
    for (unsigned i = 0; i < width; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

} // namespace

Writer& Writer::Little(std::uint32_t value, unsigned width)
{
    AppendLittle(mCommand.value, value, width);
    return *this;
}

Writer& Writer::Text(const std::string& text)
{
    U32(static_cast<std::uint32_t>(text.size()));
    mCommand.value.insert(mCommand.value.end(), text.begin(), text.end());
    return *this;
}

Writer& Writer::List16(const std::vector<std::uint32_t>& values)
{
    U32(static_cast<std::uint32_t>(values.size()));
    for (const std::uint32_t value : values)
        U16(value);
    return *this;
}

Writer& Writer::List32(const std::vector<std::uint32_t>& values)
{
    U32(static_cast<std::uint32_t>(values.size()));
    for (const std::uint32_t value : values)
        U32(value);
    return *this;
}

std::uint32_t Reader::Little(unsigned width)
{
    if (mFailed || mValue.size() - mPosition < width) {
        mFailed = true;
        return 0;
    }
    const std::uint32_t value = LittleAt(mValue, mPosition, width);
    mPosition += width;
    return value;
}

std::string Reader::Text()
{
    const std::uint32_t size = U32();
    if (mFailed || mValue.size() - mPosition < size) {
        mFailed = true;
        return {};
    }
    std::string text(mValue.begin() + static_cast<std::ptrdiff_t>(mPosition),
                     mValue.begin() + static_cast<std::ptrdiff_t>(mPosition + size));
    mPosition += size;
    return text;
}

Bytes ToItem(const Command& command)
{
    Bytes item;
    AppendLittle(item, 5u << 27 | (command.version & 31) << 22 | (command.id & 0x3FFFFF), 4);
    AppendLittle(item, static_cast<std::uint32_t>(command.value.size()), 4);
    item.insert(item.end(), command.value.begin(), command.value.end());
    return item;
}

std::optional<Command> TakeItem(Bytes& bytes, bool& broken)
{
    if (bytes.size() < HeaderSize) return std::nullopt;
    const std::uint32_t key = LittleAt(bytes, 0, 4);
    const std::uint32_t length = LittleAt(bytes, 4, 4);
    broken = key >> 27 != 5 || length > MaxValueSize;
    if (broken || bytes.size() - HeaderSize < length) return std::nullopt;
    const auto begin = bytes.begin() + HeaderSize;
    const auto end = begin + length;
    Command command{key & 0x3FFFFF, key >> 22 & 31, Bytes(begin, end)};
    bytes.erase(bytes.begin(), end);
    return command;
}

std::string ToHex(const Bytes& bytes)
{
    static constexpr char Digits[] = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : bytes) {
        if (!text.empty()) text += ' ';
        text += Digits[byte >> 4];
        text += Digits[byte & 15];
    }
    return text;
}

std::optional<Bytes> FromHex(const std::string& text)
{
    std::string digits;
    for (const char c : text) {
        if (std::isspace(static_cast<unsigned char>(c)) != 0) continue;
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) return std::nullopt;
        digits += c;
    }
    if (digits.size() % 2 != 0) return std::nullopt;
    Bytes bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

} // namespace peers
