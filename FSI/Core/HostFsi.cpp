#include "FSI/Core/HostFsi.h"

#include "MiscSource/FatalAssert.h"

#include <utility>

namespace fsi {

namespace {

constexpr std::uint32_t BlockIdOffset = 0x04;
constexpr std::uint32_t FirmwareBuildOffset = 0x06;
constexpr std::uint32_t InterruptPendingOffset = 0x18;
constexpr std::uint32_t IndirectDataOffset = 0x20;
constexpr std::uint32_t IndirectAddressOffset = 0x24;
constexpr std::uint32_t InterruptEnableOffset = 0x30;
constexpr std::uint32_t InterruptAcknowledgeOffset = 0x34;
constexpr std::uint32_t ControlOffset = 0x38;
constexpr std::uint32_t StatusOffset = 0x3C;

constexpr std::uint32_t Mask(int bit)
{
    return std::uint32_t{1} << bit;
}

} // namespace

HostFsi::HostFsi(const std::string& name, int instance) : HostFsi(name, OpenRegisterBlock(name, instance)) {}

HostFsi::HostFsi(const std::string& name, std::unique_ptr<RegisterBlock> block) : mName(name), mBlock(std::move(block))
{
    FATAL_ASSERT(mBlock, "A HostFsi requires a register block.");
}

HostFsi::~HostFsi() = default;

int HostFsi::GetFileDescriptor() const
{
    const int descriptor = mBlock->GetFileDescriptor();
    FATAL_ASSERT(descriptor != -1, "mFd != -1");
    return descriptor;
}

std::uint8_t HostFsi::GetFirmwareBuild() const
{
    return mBlock->Read8(FirmwareBuildOffset);
}

std::uint8_t HostFsi::GetBlockId() const
{
    return mBlock->Read8(BlockIdOffset);
}

void HostFsi::SetInterruptEnables(std::uint32_t mask)
{
    mBlock->Write32(InterruptEnableOffset, mask);
}

std::uint32_t HostFsi::ReadInterruptPending() const
{
    return mBlock->Read32(InterruptPendingOffset);
}

void HostFsi::AcknowledgeInterrupt(int event)
{
    mBlock->Write32(InterruptAcknowledgeOffset, mBlock->Read32(InterruptAcknowledgeOffset) | Mask(event));
}

void HostFsi::SetControlBit(int bit)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    SetControlBitLocked(bit);
}

void HostFsi::ClearControlBit(int bit)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    WriteControlLocked(mControl & ~Mask(bit));
}

void HostFsi::SetControlBitLocked(int bit)
{
    WriteControlLocked(mControl | Mask(bit));
}

void HostFsi::WriteControlLocked(std::uint32_t bits)
{
    mControl = bits;
    mBlock->Write32(ControlOffset, mControl);
}

bool HostFsi::TestStatusBit(int bit) const
{
    return (mBlock->Read32(StatusOffset) & Mask(bit)) != 0;
}

void HostFsi::SetIndirectAddress(std::uint32_t address)
{
    mBlock->Write32(IndirectAddressOffset, address);
}

std::uint32_t HostFsi::ReadIndirectData() const
{
    return mBlock->Read32(IndirectDataOffset);
}

void HostFsi::WriteIndirectData(std::uint32_t word)
{
    mBlock->Write32(IndirectDataOffset, word);
}

void HostFsi::WriteIndirectData(const std::uint32_t* words, std::size_t count)
{
    mBlock->WriteBurst(IndirectDataOffset, words, count);
}

} // namespace fsi
