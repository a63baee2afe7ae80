#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace simulation {

/// The part of a simulated register block that all blocks share: what was written to its registers, the indirect ports,
/// and the interrupt line. The board implements the indirect ports and the control bits. Not locked; the board's lock
/// guards it.
class SimulatedBlock
{
public:
    /// @param blockId byte 0x04
    /// @param firmwareBuild byte 0x06
    SimulatedBlock(const std::string& name, std::uint8_t blockId, std::uint8_t firmwareBuild);
    ~SimulatedBlock();
    SimulatedBlock(const SimulatedBlock&) = delete;
    SimulatedBlock& operator=(const SimulatedBlock&) = delete;

    static constexpr std::uint32_t Pending = 0x18;
    static constexpr std::uint32_t IndirectData = 0x20;
    static constexpr std::uint32_t IndirectAddress = 0x24;
    static constexpr std::uint32_t InterruptEnable = 0x30;
    static constexpr std::uint32_t InterruptAcknowledge = 0x34;
    static constexpr std::uint32_t Control = 0x38;
    static constexpr std::uint32_t Status = 0x3C;
    /// Bytes that the registers take up.
    static constexpr std::uint32_t Size = 0x40;

    const std::string& GetName() const { return mName; }
    void SetBlockId(std::uint8_t id);
    void SetFirmwareBuild(std::uint8_t build);

    std::uint8_t ReadByte(std::uint32_t offset) const;
    /// What the port gives; registers that are only written give 0. The acknowledge reads back the events that were
    /// acknowledged and have not come again.
    std::uint32_t Read(std::uint32_t offset) const;
    /// Stores the value, and acts on it where it is the interrupt enables or the acknowledge.
    void Write(std::uint32_t offset, std::uint32_t value);
    /// The value that the register holds, whether the port gives it or not.
    std::uint32_t Peek(std::uint32_t offset) const;

    /// The address of the next data access, which is then moved on by one word.
    std::uint32_t TakeIndirectAddress() { return std::exchange(mNextIndirectAddress, mNextIndirectAddress + 4); }
    void SetStatusBit(int bit, bool set);
    /// Sets the event's pending bit, and raises the interrupt line if the event is enabled.
    void Raise(int event);

    int GetDescriptor() const { return mReadEnd; }
    const volatile void* GetAddress() const { return mRegisters.data(); }

private:
    void Interrupt();

    const std::string mName;
    std::array<std::uint32_t, Size / 4> mRegisters{};
    std::uint32_t mNextIndirectAddress = 0;
    std::uint32_t mInterruptCount = 0;
    int mReadEnd = -1;
    int mWriteEnd = -1;
};

} // namespace simulation
