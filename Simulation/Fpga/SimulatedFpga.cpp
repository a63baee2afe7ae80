#include "Simulation/Fpga/SimulatedFpga.h"

#include <sstream>
#include <stdexcept>
#include <system_error>

namespace simulation {

namespace {

using Lock = std::lock_guard<std::mutex>;

constexpr std::uint32_t TableAddress = 0xC0000;
constexpr std::uint32_t ReferenceAddress = 0x30000;
constexpr std::uint32_t RangeLowAddress = ReferenceAddress + 16;
constexpr std::uint32_t RangeHighAddress = ReferenceAddress + 20;
constexpr std::uint32_t PllSourceAddress = ReferenceAddress + 24;

constexpr std::uint32_t SyncRequest = 1u << 5;
constexpr int SyncingBit = 3;
constexpr int ServoLockedBit = 3;
constexpr int EndOfSyncEvent = 0;
constexpr int MeasurementEvent = 2;

constexpr std::uint8_t FirmwareBuild = 42;
constexpr std::uint8_t BulkAddress = 3;

std::chrono::nanoseconds Now()
{
    return std::chrono::steady_clock::now().time_since_epoch();
}

} // namespace

/// The module's side of one block.
class SimulatedFpga::Port : public fsi::RegisterBlock
{
public:
    Port(SimulatedFpga& board, SimulatedBlock& block) : mBoard(board), mBlock(block) {}

    std::uint8_t Read8(std::uint32_t offset) const override
    {
        const Lock lock(mBoard.mMutex);
        return mBlock.ReadByte(offset);
    }
    std::uint32_t Read32(std::uint32_t offset) const override
    {
        const Lock lock(mBoard.mMutex);
        return mBoard.ReadPort(mBlock, offset);
    }
    void Write32(std::uint32_t offset, std::uint32_t value) override { WriteBurst(offset, &value, 1); }
    void WriteBurst(std::uint32_t offset, const std::uint32_t* words, std::size_t count) override
    {
        const Lock lock(mBoard.mMutex);
        // After a run of data words the register holds only the last one.
        const bool isRun = offset == SimulatedBlock::IndirectData && !mBoard.mRecording;
        for (std::size_t i = 0; i < count; ++i) {
            if (isRun && i + 1 < count) {
                mBoard.WriteIndirect(mBlock, mBlock.TakeIndirectAddress(), words[i]);
            } else {
                mBoard.WritePort(mBlock, offset, words[i]);
            }
        }
    }
    int GetFileDescriptor() const override { return mBlock.GetDescriptor(); }
    const volatile void* GetMappedAddress() const override { return mBlock.GetAddress(); }
    std::uint32_t GetSize() const override { return SimulatedBlock::Size; }

private:
    SimulatedFpga& mBoard;
    SimulatedBlock& mBlock;
};

SimulatedFpga::SimulatedFpga()
    : mDma("0003", 3, 0),
      mReference("0004", 4, 0),
      mFirmware("0010", 0x10, FirmwareBuild),
      mBulk("0012", BulkAddress, 0),
      mThread([this] { RunSyncs(); })
{}

SimulatedFpga::~SimulatedFpga()
{
    {
        const Lock lock(mMutex);
        mStop = true;
    }
    mChanged.notify_all();
    mThread.join();
}

std::unique_ptr<fsi::RegisterBlock> SimulatedFpga::Open(const std::string& name, int instance)
{
    if (instance != 0 || !HasBlock(name)) {
        std::ostringstream text;
        text << "FSI '" << name << "' (device '', fd -1, size 0)";
        throw std::system_error(std::make_error_code(std::errc::no_such_device), text.str());
    }
    const Lock lock(mMutex);
    return std::make_unique<Port>(*this, Block(name));
}

SimulatedBlock& SimulatedFpga::Block(const std::string& name)
{
    for (SimulatedBlock* const block : {&mDma, &mReference, &mFirmware, &mBulk})
        if (block->GetName() == name) return *block;
    throw std::invalid_argument("no block " + name);
}

const SimulatedBlock& SimulatedFpga::Block(const std::string& name) const
{
    return const_cast<SimulatedFpga*>(this)->Block(name);
}

bool SimulatedFpga::HasBlock(const std::string& name) const
{
    for (const SimulatedBlock* const block : {&mDma, &mReference, &mFirmware, &mBulk})
        if (block->GetName() == name) return true;
    return false;
}

std::uint32_t SimulatedFpga::GetRegister(const std::string& block, std::uint32_t offset) const
{
    const Lock lock(mMutex);
    return Block(block).Peek(offset);
}

SimulatedFpga::Table SimulatedFpga::GetActiveTable() const
{
    const Lock lock(mMutex);
    return mActive;
}

std::optional<SimulatedFpga::SampleName> SimulatedFpga::Probe(std::uint32_t endpoint, std::uint32_t sample) const
{
    const Lock lock(mMutex);
    const std::uint32_t sink = endpoint << 9 | sample;
    std::uint32_t source = 0;
    // The engine reads the table from its start: of two entries for one sample the later one counts.
    for (const std::uint32_t word : mActive)
        if ((word & 0xFFF) == sink) source = word >> 12 & 0xFFF;
    if (source == 0) return std::nullopt;
    return SampleName{source >> 9, source & 0x1FF};
}

std::uint64_t SimulatedFpga::GetSyncs() const
{
    const Lock lock(mMutex);
    return mSyncs;
}

std::uint64_t SimulatedFpga::GetSyncRequests() const
{
    const Lock lock(mMutex);
    return mRequests;
}

SimulatedFpga::Times SimulatedFpga::GetTimes() const
{
    const Lock lock(mMutex);
    return mTimes;
}

std::uint32_t SimulatedFpga::GetPllSource() const
{
    const Lock lock(mMutex);
    return mPllSource;
}

std::pair<std::uint32_t, std::uint32_t> SimulatedFpga::GetRange() const
{
    const Lock lock(mMutex);
    return {mRangeLow, mRangeHigh};
}

bool SimulatedFpga::WaitForSyncs(std::uint64_t n, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return mSyncs >= n; });
}

bool SimulatedFpga::WaitForSyncRequests(std::uint64_t n, std::chrono::milliseconds timeout) const
{
    std::unique_lock<std::mutex> lock(mMutex);
    return mChanged.wait_for(lock, timeout, [&] { return mRequests >= n; });
}

void SimulatedFpga::SetSyncTime(std::chrono::microseconds time)
{
    const Lock lock(mMutex);
    mSyncTime = time;
}

void SimulatedFpga::SetHold(bool hold)
{
    const Lock lock(mMutex);
    mHold = hold;
    const bool syncing = mDma.Peek(SimulatedBlock::Status) >> SyncingBit & 1;
    if (hold)
        mSyncEnd.reset();
    else if (syncing && !mSyncEnd)
        BeginActivation();
}

bool SimulatedFpga::Complete()
{
    const Lock lock(mMutex);
    if ((mDma.Peek(SimulatedBlock::Status) >> SyncingBit & 1) == 0) return false;
    Activate();
    return true;
}

void SimulatedFpga::Measure(std::uint32_t id, std::uint32_t value)
{
    const Lock lock(mMutex);
    mMeasurement = value << 8 | (id & 0xFF);
    mReference.Raise(MeasurementEvent);
}

void SimulatedFpga::SetServoLock(bool locked)
{
    const Lock lock(mMutex);
    mReference.SetStatusBit(ServoLockedBit, locked);
}

void SimulatedFpga::RaiseEvent(const std::string& block, int event)
{
    const Lock lock(mMutex);
    Block(block).Raise(event);
}

void SimulatedFpga::SetFirmwareBuild(std::uint8_t build)
{
    const Lock lock(mMutex);
    mFirmware.SetFirmwareBuild(build);
}

void SimulatedFpga::SetBulkAddress(std::uint8_t address)
{
    const Lock lock(mMutex);
    mBulk.SetBlockId(address);
}

void SimulatedFpga::SetActivationListener(std::function<void()> listener)
{
    const Lock lock(mMutex);
    mListener = std::move(listener);
}

void SimulatedFpga::LoseEndOfSync(unsigned count)
{
    const Lock lock(mMutex);
    mLostEnds = count;
}

void SimulatedFpga::StartRecord()
{
    const Lock lock(mMutex);
    mRecording = true;
    mRecord.clear();
}

std::vector<SimulatedFpga::Access> SimulatedFpga::GetRecord() const
{
    const Lock lock(mMutex);
    return mRecord;
}

std::uint32_t SimulatedFpga::ReadPort(SimulatedBlock& block, std::uint32_t offset)
{
    return offset == SimulatedBlock::IndirectData ? ReadIndirect(block, block.TakeIndirectAddress())
                                                  : block.Read(offset);
}

void SimulatedFpga::WritePort(SimulatedBlock& block, std::uint32_t offset, std::uint32_t value)
{
    if (mRecording && mRecord.size() < RecordLimit) mRecord.push_back({block.GetName(), offset, value});
    const std::uint32_t before = block.Peek(offset);
    block.Write(offset, value);
    if (offset == SimulatedBlock::IndirectData)
        WriteIndirect(block, block.TakeIndirectAddress(), value);
    else if (offset == SimulatedBlock::Control && &block == &mDma && (value & ~before & SyncRequest))
        OnSyncRequest();
}

std::uint32_t SimulatedFpga::ReadIndirect(const SimulatedBlock& block, std::uint32_t address) const
{
    // The table and the other registers of the reference block are only written.
    return &block == &mReference && address == ReferenceAddress ? mMeasurement : 0;
}

void SimulatedFpga::WriteIndirect(const SimulatedBlock& block, std::uint32_t address, std::uint32_t value)
{
    if (&block == &mDma) {
        const std::uint32_t index = (address - TableAddress) / 4;
        if (address >= TableAddress && index < TableSize) mWritten[index] = value;
    } else if (&block == &mReference) {
        if (address == RangeLowAddress) mRangeLow = value;
        if (address == RangeHighAddress) mRangeHigh = value;
        if (address == PllSourceAddress) mPllSource = value;
    }
}

void SimulatedFpga::OnSyncRequest()
{
    ++mRequests;
    mTimes.request = Now();
    mTaken = mWritten;
    mDma.SetStatusBit(SyncingBit, true);
    mChanged.notify_all();
    if (!mHold) BeginActivation();
}

void SimulatedFpga::BeginActivation()
{
    if (mSyncTime == std::chrono::microseconds::zero()) {
        Activate();
        return;
    }
    mSyncEnd = std::chrono::steady_clock::now() + mSyncTime;
    mChanged.notify_all();
}

void SimulatedFpga::Activate()
{
    mSyncEnd.reset();
    mActive = mTaken;
    mDma.SetStatusBit(SyncingBit, false);
    ++mSyncs;
    mTimes.activation = Now();
    if (mLostEnds > 0)
        --mLostEnds;
    else
        mDma.Raise(EndOfSyncEvent);
    mChanged.notify_all();
    if (mListener) mListener();
}

void SimulatedFpga::RunSyncs()
{
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStop) {
        if (!mSyncEnd) {
            mChanged.wait(lock);
        } else if (std::chrono::steady_clock::now() >= *mSyncEnd) {
            Activate();
        } else {
            const std::chrono::steady_clock::time_point end = *mSyncEnd;
            mChanged.wait_until(lock, end);
        }
    }
}

} // namespace simulation
