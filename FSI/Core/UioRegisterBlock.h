#pragma once

#include "FSI/Core/RegisterBlock.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace fsi {

/// A register block that the kernel exposes as a UIO device, found by the name of the device and mapped for the
/// object's life. Plain volatile accesses; any thread, under the caller's lock.
class UioRegisterBlock : public RegisterBlock
{
public:
    /// Of the devices whose name is `name` (case does not matter), in the order of their paths, takes the
    /// instance-th, 0 the first.
    /// @param classRoot where the kernel lists its UIO devices
    /// @param deviceRoot directory of their device files
    /// @throws std::system_error if there is none, or it cannot be opened or mapped, or its mapping is too short for
    /// a register block; the text names block, device, descriptor and size
    UioRegisterBlock(const std::string& name, int instance, const std::string& classRoot = "/sys/class/uio",
                     const std::string& deviceRoot = "/dev");
    ~UioRegisterBlock() override;
    UioRegisterBlock(const UioRegisterBlock&) = delete;
    UioRegisterBlock& operator=(const UioRegisterBlock&) = delete;

    std::uint8_t Read8(std::uint32_t offset) const override { return mBase[offset]; }
    std::uint32_t Read32(std::uint32_t offset) const override { return *Register(offset); }
    void Write32(std::uint32_t offset, std::uint32_t value) override { *Register(offset) = value; }
    void WriteBurst(std::uint32_t offset, const std::uint32_t* words, std::size_t count) override;

    int GetFileDescriptor() const override { return mFd; }
    const volatile void* GetMappedAddress() const override { return mBase; }
    std::uint32_t GetSize() const override { return mSize; }

private:
    /// For the constructor that can fail: what it has opened by then is closed by the destructor.
    UioRegisterBlock() = default;
    void Map(const std::string& device, std::uint32_t offset);
    volatile std::uint32_t* Register(std::uint32_t offset) const
    {
        return reinterpret_cast<volatile std::uint32_t*>(mBase + offset);
    }

    std::uint32_t mSize = 0;
    int mFd = -1;
    void* mMapping = nullptr;
    volatile std::uint8_t* mBase = nullptr;
};

} // namespace fsi
