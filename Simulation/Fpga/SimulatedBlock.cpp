#include "Simulation/Fpga/SimulatedBlock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <system_error>
#include <unistd.h>

namespace simulation {

namespace {

constexpr std::uint32_t IdentityOffset = 0x04;

} // namespace

SimulatedBlock::SimulatedBlock(const std::string& name, std::uint8_t blockId, std::uint8_t firmwareBuild) : mName(name)
{
    SetBlockId(blockId);
    SetFirmwareBuild(firmwareBuild);
    int ends[2];
    // As on a real line, a read waits for the next interrupt.
    if (::pipe2(ends, O_CLOEXEC) != 0)
        throw std::system_error(errno, std::generic_category(), "line of simulated block " + name);
    mReadEnd = ends[0];
    mWriteEnd = ends[1];
}

SimulatedBlock::~SimulatedBlock()
{
    ::close(mWriteEnd);
    ::close(mReadEnd);
}

void SimulatedBlock::SetBlockId(std::uint8_t id)
{
    std::uint32_t& word = mRegisters[IdentityOffset / 4];
    word = (word & ~0xFFu) | id;
}

void SimulatedBlock::SetFirmwareBuild(std::uint8_t build)
{
    std::uint32_t& word = mRegisters[IdentityOffset / 4];
    word = (word & ~0xFF0000u) | std::uint32_t{build} << 16;
}

std::uint8_t SimulatedBlock::ReadByte(std::uint32_t offset) const
{
    return static_cast<std::uint8_t>(Read(offset & ~3u) >> (offset % 4 * 8));
}

std::uint32_t SimulatedBlock::Read(std::uint32_t offset) const
{
    switch (offset) {
    case IndirectAddress:
    case InterruptEnable:
    case Control:
        return 0;
    default:
        return Peek(offset);
    }
}

std::uint32_t SimulatedBlock::Peek(std::uint32_t offset) const
{
    return offset < Size && offset % 4 == 0 ? mRegisters[offset / 4] : 0;
}

void SimulatedBlock::Write(std::uint32_t offset, std::uint32_t value)
{
    if (offset >= Size || offset % 4 != 0) return;
    std::uint32_t& pending = mRegisters[Pending / 4];
    const std::uint32_t before = mRegisters[offset / 4];
    switch (offset) {
    case IdentityOffset:
    case Pending:
    case Status:
        return;
    case IndirectAddress:
        mNextIndirectAddress = value;
        break;
    case InterruptAcknowledge:
        pending &= ~value;
        break;
    case InterruptEnable:
        if (pending & value & ~before) Interrupt();
        break;
    default:
        break;
    }
    mRegisters[offset / 4] = value;
}

void SimulatedBlock::SetStatusBit(int bit, bool set)
{
    const std::uint32_t mask = 1u << bit;
    std::uint32_t& status = mRegisters[Status / 4];
    status = set ? status | mask : status & ~mask;
}

void SimulatedBlock::Raise(int event)
{
    const std::uint32_t mask = 1u << event;
    mRegisters[Pending / 4] |= mask;
    mRegisters[InterruptAcknowledge / 4] &= ~mask;
    if (mRegisters[InterruptEnable / 4] & mask) Interrupt();
}

void SimulatedBlock::Interrupt()
{
    ++mInterruptCount;
    // As on the real line, interrupts that were not taken yet become one. The reader reads the pending bits after that,
    // and so sees this event too.
    int unread = 0;
    if (::ioctl(mReadEnd, FIONREAD, &unread) != 0 || unread > 0) return;
    [[maybe_unused]] const ssize_t written = ::write(mWriteEnd, &mInterruptCount, sizeof mInterruptCount);
}

} // namespace simulation
