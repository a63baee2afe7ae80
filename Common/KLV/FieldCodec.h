#pragma once

#include "Common/KLV/KLVReadSet.h"
#include "Common/KLV/KLVWriteSet.h"
#include "MiscSource/Hid.h"
#include "MiscSource/IoPort.h"

#include <array>
#include <cstdint>
#include <string>
#include <type_traits>
#include <vector>

// Wire format of each type of field: GetFieldLength, WriteField, ReadField. A record type defines a VisitFields.

namespace Klv {

/// An enumeration in a byte field whatever its own width.
template <class Enumeration>
class ByteField
{
public:
    constexpr ByteField() = default;
    constexpr ByteField(Enumeration value) : mValue(value) {}
    explicit constexpr ByteField(std::uint8_t number) : mValue(static_cast<Enumeration>(number)) {}
    constexpr operator Enumeration() const { return mValue; }

private:
    Enumeration mValue{};
};

/// An IPv4 address in network order: its bytes are the same on the wire and in memory.
class NetworkAddress
{
public:
    constexpr NetworkAddress() = default;
    constexpr NetworkAddress(std::uint32_t value) : mValue(value) {}
    constexpr operator std::uint32_t() const { return mValue; }

private:
    std::uint32_t mValue{};
};

template <class Type, class = void>
struct FieldCodec;

template <class Type>
std::uint32_t GetFieldLength(const Type& value)
{
    return FieldCodec<Type>::GetLength(value);
}
template <class Type>
void WriteField(KLVWriteSet& set, const Type& value)
{
    FieldCodec<Type>::Write(set, value);
}
template <class Type>
void ReadField(KLVReadSet& set, Type& value)
{
    FieldCodec<Type>::Read(set, value);
}

// A record: the fields of VisitFields in a row.
template <class Type, class>
struct FieldCodec
{
    static std::uint32_t GetLength(const Type& record)
    {
        std::uint32_t length = 0;
        Type::VisitFields(record, [&](const char*, const auto& field) { length += GetFieldLength(field); });
        return length;
    }
    static void Write(KLVWriteSet& set, const Type& record)
    {
        Type::VisitFields(record, [&](const char*, const auto& field) { WriteField(set, field); });
    }
    static void Read(KLVReadSet& set, Type& record)
    {
        Type::VisitFields(record, [&](const char*, auto& field) { ReadField(set, field); });
    }
};

/// A field that is a number on the wire.
template <class Type, class Number>
struct NumberCodec
{
    static std::uint32_t GetLength(const Type&) { return sizeof(Number); }
    static void Write(KLVWriteSet& set, const Type& value) { set.WriteNative(static_cast<Number>(value)); }
    static void Read(KLVReadSet& set, Type& value)
    {
        Number number{};
        if (set.ReadNative(number)) value = static_cast<Type>(number);
    }
};

template <class Type>
struct FieldCodec<Type, std::enable_if_t<IsNative<Type>>> : NumberCodec<Type, Type>
{};

/// With the width of its underlying type.
template <class Enumeration>
struct FieldCodec<Enumeration, std::enable_if_t<std::is_enum_v<Enumeration>>>
    : NumberCodec<Enumeration, std::underlying_type_t<Enumeration>>
{};

template <>
struct FieldCodec<Hid> : NumberCodec<Hid, std::uint32_t>
{};

template <class Enumeration>
struct FieldCodec<ByteField<Enumeration>> : NumberCodec<ByteField<Enumeration>, std::uint8_t>
{};

template <>
struct FieldCodec<NetworkAddress>
{
    static std::uint32_t GetLength(const NetworkAddress&) { return 4; }
    static void Write(KLVWriteSet& set, const NetworkAddress& address)
    {
        const std::uint32_t bytes = address;
        set.WriteRaw(&bytes, sizeof bytes);
    }
    static void Read(KLVReadSet& set, NetworkAddress& address)
    {
        std::uint32_t bytes{};
        if (set.ReadRaw(&bytes, sizeof bytes)) address = bytes;
    }
};

template <>
struct FieldCodec<IoPort>
{
    static std::uint32_t GetLength(const IoPort&) { return 8; }
    static void Write(KLVWriteSet& set, const IoPort& port)
    {
        set.WriteNative(std::uint32_t{port.GetHid()});
        set.WriteNative(port.GetStyleAndIndex());
    }
    static void Read(KLVReadSet& set, IoPort& port)
    {
        std::uint32_t hid = port.GetHid();
        std::uint32_t styleAndIndex = port.GetStyleAndIndex();
        if (set.ReadNative(hid) && set.ReadNative(styleAndIndex)) port = IoPort::FromWords(hid, styleAndIndex);
    }
};

template <>
struct FieldCodec<std::string>
{
    static std::uint32_t GetLength(const std::string& text) { return 4 + static_cast<std::uint32_t>(text.size()); }
    static void Write(KLVWriteSet& set, const std::string& text) { set.WriteString(text); }
    static void Read(KLVReadSet& set, std::string& text) { set.ReadString(text); }
};

/// A count, and the elements in a row.
template <class Element>
struct FieldCodec<std::vector<Element>>
{
    static std::uint32_t GetLength(const std::vector<Element>& elements)
    {
        std::uint32_t length = 4;
        for (const Element& element : elements)
            length += GetFieldLength(element);
        return length;
    }
    static void Write(KLVWriteSet& set, const std::vector<Element>& elements)
    {
        set.WriteNative(static_cast<std::uint32_t>(elements.size()));
        for (const Element& element : elements)
            WriteField(set, element);
    }
    static void Read(KLVReadSet& set, std::vector<Element>& elements)
    {
        elements.clear();
        // The smallest form of an element is that of a fresh one.
        for (std::uint32_t left = set.ReadCount(GetFieldLength(Element{})); left > 0 && !set.IsBad(); --left) {
            Element element{};
            ReadField(set, element);
            if (!set.IsBad()) elements.push_back(std::move(element));
        }
    }
};

/// A fixed number of fields in a row, without a count.
template <class Element, std::size_t Size>
struct FieldCodec<std::array<Element, Size>>
{
    static std::uint32_t GetLength(const std::array<Element, Size>& elements)
    {
        std::uint32_t length = 0;
        for (const Element& element : elements)
            length += GetFieldLength(element);
        return length;
    }
    static void Write(KLVWriteSet& set, const std::array<Element, Size>& elements)
    {
        for (const Element& element : elements)
            WriteField(set, element);
    }
    static void Read(KLVReadSet& set, std::array<Element, Size>& elements)
    {
        for (Element& element : elements)
            ReadField(set, element);
    }
};

} // namespace Klv
