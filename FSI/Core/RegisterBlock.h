#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace fsi {

/// Access to one register block of the FPGA: the seam between this module and its hardware.
/// Offsets are in bytes from the block's base. Registers are 32 bits wide, 32-bit offsets are multiples of 4.
/// Every access takes effect at once and in order. Locking is the caller's.
class RegisterBlock
{
public:
    virtual ~RegisterBlock() = default;

    virtual std::uint8_t Read8(std::uint32_t offset) const = 0;
    virtual std::uint32_t Read32(std::uint32_t offset) const = 0;
    virtual void Write32(std::uint32_t offset, std::uint32_t value) = 0;
    /// Writes all words, in order, to the one register at this offset.
    virtual void WriteBurst(std::uint32_t offset, const std::uint32_t* words, std::size_t count) = 0;

    /// Descriptor that polls readable on an interrupt; a 4-byte read takes the event count. -1 if there is none.
    virtual int GetFileDescriptor() const = 0;
    virtual const volatile void* GetMappedAddress() const = 0;
    /// Length of the mapping in bytes.
    virtual std::uint32_t GetSize() const = 0;
};

/// Opens the instance-th block (0 the first) of that UIO name. Defined once for the unit and once for the
/// simulation; the link decides which a program gets.
/// @throws std::system_error that names block, device, descriptor and size.
std::unique_ptr<RegisterBlock> OpenRegisterBlock(const std::string& name, int instance);

} // namespace fsi
