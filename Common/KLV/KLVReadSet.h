#pragma once

#include "Common/KLV/KLVSet.h"
#include "Common/KLV/KLVWriteSet.h"

#include <cstdint>
#include <string>
#include <type_traits>

/// Reads the value of one item, field by field, and never past its end.
///
/// A field that does not fit what is left of the item reads nothing, leaves its target as it was, and marks the item as
/// bad; so do all later fields, since their start is unknown. The framing of a stream with such an item can no longer
/// be trusted.
class KLVReadSet : public KLVSet
{
public:
    static constexpr std::uint32_t MAX_STRING_SIZE = 0x40000;

    ~KLVReadSet() override;

    template <class Type>
    bool ReadNative(Type& value)
    {
        static_assert(Klv::IsNative<Type>, "not a type of the wire");
        std::uint8_t bytes[sizeof(Type)];
        if (!ReadRaw(bytes, sizeof bytes)) return false;
        if constexpr (std::is_same_v<Type, bool>) {
            value = bytes[0] != 0;
        } else {
            value = LoadLittleEndian<Type>(bytes);
        }
        return true;
    }
    bool ReadRaw(void* dest, std::uint32_t size);
    bool ReadString(std::string& text);
    /// The count in front of a list, checked: that many elements of at least this size must fit what is left.
    /// Gives 0, and marks the item, if they do not.
    std::uint32_t ReadCount(std::uint32_t elementSize);
    /// Kept as the counterpart of WriteVector.
    template <class Container>
    void ReadVector(Container& container)
    {
        typename Container::value_type element{};
        container.clear();
        for (std::uint32_t left = ReadCount(sizeof element); left > 0 && ReadNative(element); --left) {
            container.insert(container.end(), element);
        }
    }

    /// Moves the stream to the end of the item, without a word.
    void Skip() { mStream.Skip(GetBytesLeft(), false); }
    /// Bytes of the value that have not been read.
    std::uint32_t GetBytesLeft() const;
    std::uint32_t GetCommandId() const { return mKey & Klv::ID_MASK; }
    bool IsBad() const { return mBad; }
    /// For a field whose value cannot be.
    void MarkBad() { mBad = true; }

protected:
    explicit KLVReadSet(DataStream& stream);

private:
    bool mCheckOnClose = true;
    bool mBad = false;
};

/// One command on its way in.
class KLVCommandReadSet : public KLVReadSet
{
public:
    explicit KLVCommandReadSet(DataStream& stream) : KLVReadSet(stream) {}
    ~KLVCommandReadSet() override;
};
