#include "FSI/Core/HostFsi.h"

#include "MiscSource/FatalAssert.h"

#include <utility>

namespace fsi {

HostFsi::HostFsi(const std::string& name, int instance) : HostFsi(name, OpenRegisterBlock(name, instance)) {}

HostFsi::HostFsi(const std::string& name, std::unique_ptr<RegisterBlock> block) : mName(name), mBlock(std::move(block))
{
    FATAL_ASSERT(mBlock, "A HostFsi requires a register block.");
}

int HostFsi::GetFileDescriptor() const
{
    const int descriptor = mBlock->GetFileDescriptor();
    FATAL_ASSERT(descriptor != -1, "mFd != -1");
    return descriptor;
}

void HostFsi::AcknowledgeInterrupt(int event)
{
    mBlock->Write32(InterruptAcknowledgeOffset, mBlock->Read32(InterruptAcknowledgeOffset) | Mask(event));
}

void HostFsi::SetControlBit(int bit, bool on)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    SetControlBitLocked(bit, on);
}

void HostFsi::SetControlBitLocked(int bit, bool on)
{
    mControl = on ? mControl | Mask(bit) : mControl & ~Mask(bit);
    mBlock->Write32(ControlOffset, mControl);
}

void HostFsi::WriteIndirectData(const std::uint32_t* words, std::size_t count)
{
    mBlock->WriteBurst(IndirectDataOffset, words, count);
}

} // namespace fsi
