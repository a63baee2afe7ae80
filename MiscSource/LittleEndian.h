#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

// Numbers in wire format, least significant byte first, whatever the processor.

template <class Number>
void StoreLittleEndian(Number value, std::uint8_t* bytes)
{
    static_assert(std::is_integral_v<Number>);
    const auto bits = static_cast<std::make_unsigned_t<Number>>(value);
    for (std::size_t i = 0; i < sizeof bits; ++i)
        bytes[i] = static_cast<std::uint8_t>(std::uint64_t{bits} >> (8 * i));
}

template <class Number>
Number LoadLittleEndian(const std::uint8_t* bytes)
{
    static_assert(std::is_integral_v<Number>);
    std::uint64_t bits = 0;
    for (std::size_t i = 0; i < sizeof(Number); ++i)
        bits |= std::uint64_t{bytes[i]} << (8 * i);
    return static_cast<Number>(bits);
}
