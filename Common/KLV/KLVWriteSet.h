#pragma once

#include "Common/KLV/KLVSet.h"
#include "MiscSource/LittleEndian.h"

#include <cstdint>
#include <string>
#include <type_traits>

namespace Klv {

/// The numbers of the wire. long is none of them: its width depends on the machine.
template <class Type>
constexpr bool IsNative =
    std::is_same_v<Type, bool> || std::is_same_v<Type, char> || std::is_same_v<Type, std::int8_t> ||
    std::is_same_v<Type, std::uint8_t> || std::is_same_v<Type, std::int16_t> || std::is_same_v<Type, std::uint16_t> ||
    std::is_same_v<Type, std::int32_t> || std::is_same_v<Type, std::uint32_t>;

} // namespace Klv

/// Writes the value of one item, field by field. Nothing here throws; a write that fails is logged.
class KLVWriteSet : public KLVSet
{
public:
    ~KLVWriteSet() override { mStream.EndKey(mItemIndex, mValueMark, mKey); }

    /// Kept for a stream that coalesces; a command needs none, since its bytes leave when its set closes.
    virtual void Commit() { mStream.Commit(); }

    template <class Type>
    void WriteNative(Type value)
    {
        static_assert(Klv::IsNative<Type>, "not a type of the wire");
        std::uint8_t bytes[sizeof(Type)];
        if constexpr (std::is_same_v<Type, bool>) {
            bytes[0] = value ? 1 : 0;
        } else {
            StoreLittleEndian(value, bytes);
        }
        WriteNumber(bytes, sizeof bytes);
    }
    bool WriteRaw(const void* src, std::uint32_t size) { return mStream.Write(src, size); }
    /// A byte count and the bytes. A string of more than 1024 bytes is reported, and written all the same.
    void WriteString(const std::string& text);
    /// Kept for values of numbers alone; commands write their lists field by field.
    template <class Container>
    void WriteVector(const Container& container)
    {
        WriteNative(static_cast<std::uint32_t>(container.size()));
        for (const auto& element : container)
            WriteNative(element);
    }

protected:
    KLVWriteSet(DataStream& stream, std::uint32_t key, std::uint32_t length);

private:
    void WriteNumber(const std::uint8_t* bytes, std::uint32_t size);
    static void CheckStringLength(const std::string& text);

    std::uint32_t mItemIndex{};
};

/// One command to send.
class KLVCommandWriteSet : public KLVWriteSet
{
public:
    /// Writes the header at once. @param length bytes of the value.
    KLVCommandWriteSet(DataStream& stream, std::uint32_t version, std::uint32_t id, std::uint32_t length);
    ~KLVCommandWriteSet() override;
};

/// One panel event to send. Kept for the panels' own commands; this module sends none.
class KLVPanelEventWriteSet : public KLVWriteSet
{
public:
    KLVPanelEventWriteSet(DataStream& stream, std::uint32_t eventId, std::uint32_t length);
};
