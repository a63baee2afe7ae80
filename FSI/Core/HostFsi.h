#pragma once

#include "FSI/Core/Fsi.h"
#include "FSI/Core/RegisterBlock.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace fsi {

/// A register block that this process has mapped, with the registers that all blocks share.
///
/// Lives on the main thread. The control bits are also changed by the ADMA sync thread, so their shadow and register
/// are under mMutex; derived classes guard with the same mutex what else the two threads share. The indirect ports
/// belong to the main thread alone.
class HostFsi : public Fsi
{
public:
    /// Finds and maps the instance-th block (0 the first) of that UIO name.
    /// @throws std::system_error, see OpenRegisterBlock
    HostFsi(const std::string& name, int instance);
    /// Takes a block that is open already. GetName returns the name.
    HostFsi(const std::string& name, std::unique_ptr<RegisterBlock> block);

    std::string GetName() const { return mName; }
    /// The descriptor that polls readable on an interrupt. The block must have one.
    int GetFileDescriptor() const;
    const volatile void* GetMappedAddress() const { return mBlock->GetMappedAddress(); }

    std::uint8_t GetFirmwareBuild() const { return mBlock->Read8(FirmwareBuildOffset); }
    std::uint8_t GetBlockId() const { return mBlock->Read8(BlockIdOffset); }

    /// Bit n of the mask enables event n; replaces what was enabled before.
    void SetInterruptEnables(std::uint32_t mask) { mBlock->Write32(InterruptEnableOffset, mask); }
    /// Bit n is event n.
    std::uint32_t ReadInterruptPending() const { return mBlock->Read32(InterruptPendingOffset); }
    /// @param event 0 to 31
    void AcknowledgeInterrupt(int event);

    /// @param bit 0 to 31. Any thread.
    void SetControlBit(int bit, bool on = true);
    void ClearControlBit(int bit) { SetControlBit(bit, false); }
    bool TestStatusBit(int bit) const { return (mBlock->Read32(StatusOffset) & Mask(bit)) != 0; }

    /// The FPGA-internal address (bytes) that the next data accesses apply to.
    void SetIndirectAddress(std::uint32_t address) { mBlock->Write32(IndirectAddressOffset, address); }
    std::uint32_t ReadIndirectData() const { return mBlock->Read32(IndirectDataOffset); }
    void WriteIndirectData(std::uint32_t word) { mBlock->Write32(IndirectDataOffset, word); }
    /// Writes a run of words through the data port, in order.
    void WriteIndirectData(const std::uint32_t* words, std::size_t count);

protected:
    std::mutex& GetMutex() const { return mMutex; }
    /// As SetControlBit, for a caller that holds the mutex.
    void SetControlBitLocked(int bit, bool on = true);

private:
    /// Of the registers that all blocks have, in bytes.
    enum Offset : std::uint32_t {
        BlockIdOffset = 0x04,
        FirmwareBuildOffset = 0x06,
        InterruptPendingOffset = 0x18,
        IndirectDataOffset = 0x20,
        IndirectAddressOffset = 0x24,
        InterruptEnableOffset = 0x30,
        InterruptAcknowledgeOffset = 0x34,
        ControlOffset = 0x38,
        StatusOffset = 0x3C
    };
    static constexpr std::uint32_t Mask(int bit) { return std::uint32_t{1} << bit; }

    const std::string mName;
    const std::unique_ptr<RegisterBlock> mBlock;
    /// What register 0x38 was last set to; the block is not relied on to read it back.
    std::uint32_t mControl = 0;
    mutable std::mutex mMutex;
};

} // namespace fsi
