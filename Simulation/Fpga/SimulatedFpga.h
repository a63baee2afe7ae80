#pragma once

#include "FSI/Core/RegisterBlock.h"
#include "Simulation/Fpga/SimulatedBlock.h"

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace simulation {

/// The FPGA of the unit: audio DMA "0003", external reference "0004", firmware information "0010" and bulk audio
/// "0012", with the behaviour that the module sees through their registers.
///
/// What it knows of routes came through the register ports and became active by a sync request. Any thread may use
/// either side; mMutex guards everything. Its thread completes the syncs that take time. It outlives the
/// blocks opened from it.
class SimulatedFpga
{
public:
    static constexpr std::size_t TableSize = 2048;
    using Table = std::array<std::uint32_t, TableSize>;

    /// One write that came through a port.
    struct Access
    {
        std::string block;
        std::uint32_t offset;
        std::uint32_t value;
    };
    struct SampleName
    {
        std::uint32_t endpoint;
        std::uint32_t sample;
        friend bool operator==(const SampleName& a, const SampleName& b)
        {
            return a.endpoint == b.endpoint && a.sample == b.sample;
        }
    };
    struct Times
    {
        /// CLOCK_MONOTONIC of the last sync request and of the last activation, 0 if there was none.
        std::chrono::nanoseconds request{0};
        std::chrono::nanoseconds activation{0};
    };

    SimulatedFpga();
    ~SimulatedFpga();
    SimulatedFpga(const SimulatedFpga&) = delete;
    SimulatedFpga& operator=(const SimulatedFpga&) = delete;

    /// The module's side of a block. Each block is there once.
    /// @throws std::system_error as for a UIO device that is not there
    std::unique_ptr<fsi::RegisterBlock> Open(const std::string& name, int instance = 0);

    // What the hardware holds.

    bool HasBlock(const std::string& name) const;
    /// @param offset a multiple of 4 below 0x40
    std::uint32_t GetRegister(const std::string& block, std::uint32_t offset) const;
    Table GetActiveTable() const;
    /// The sample that feeds this sink sample, none for silence.
    std::optional<SampleName> Probe(std::uint32_t endpoint, std::uint32_t sample) const;
    /// Number of activations so far.
    std::uint64_t GetSyncs() const;
    /// Number of sync requests so far.
    std::uint64_t GetSyncRequests() const;
    Times GetTimes() const;
    std::uint32_t GetPllSource() const;
    /// The two measurement bounds, low and high.
    std::pair<std::uint32_t, std::uint32_t> GetRange() const;
    /// False if the count has not reached n in time.
    bool WaitForSyncs(std::uint64_t n, std::chrono::milliseconds timeout) const;
    bool WaitForSyncRequests(std::uint64_t n, std::chrono::milliseconds timeout) const;

    // What happens to it.

    void SetSyncTime(std::chrono::microseconds time);
    /// While on, sync requests wait for Complete; turned off, a held one proceeds.
    void SetHold(bool hold);
    /// Completes the sync in progress; false if there is none.
    bool Complete();
    /// @param id 8 bits
    /// @param value 24 bits
    void Measure(std::uint32_t id, std::uint32_t value);
    void SetServoLock(bool locked);
    /// @param event 0 to 31
    void RaiseEvent(const std::string& block, int event);
    void SetFirmwareBuild(std::uint8_t build);
    /// Address of the bulk block on the ADMA engine.
    void SetBulkAddress(std::uint8_t address);
    /// Called after each activation, on the thread that caused it and with the lock held: it must not call
    /// back.
    void SetActivationListener(std::function<void()> listener);

    // Faults.

    /// The next syncs become active without an interrupt.
    void LoseEndOfSync(unsigned count);

    /// Keeps the writes of the module's side from here on, at most 65536.
    void StartRecord();
    std::vector<Access> GetRecord() const;

private:
    class Port;

    static constexpr std::size_t RecordLimit = 65536;

    SimulatedBlock& Block(const std::string& name);
    const SimulatedBlock& Block(const std::string& name) const;
    std::uint32_t ReadPort(SimulatedBlock& block, std::uint32_t offset);
    void WritePort(SimulatedBlock& block, std::uint32_t offset, std::uint32_t value);
    std::uint32_t ReadIndirect(const SimulatedBlock& block, std::uint32_t address) const;
    void WriteIndirect(const SimulatedBlock& block, std::uint32_t address, std::uint32_t value);
    void OnSyncRequest();
    void BeginActivation();
    void Activate();
    void RunSyncs();

    mutable std::mutex mMutex;
    mutable std::condition_variable mChanged;
    SimulatedBlock mDma;
    SimulatedBlock mReference;
    SimulatedBlock mFirmware;
    SimulatedBlock mBulk;

    /// Written through the data port, taken by the sync in progress, and active.
    Table mWritten{};
    Table mTaken{};
    Table mActive{};
    bool mHold = false;
    std::chrono::microseconds mSyncTime{0};
    std::optional<std::chrono::steady_clock::time_point> mSyncEnd;
    std::uint64_t mSyncs = 0;
    std::uint64_t mRequests = 0;
    Times mTimes;
    unsigned mLostEnds = 0;
    std::function<void()> mListener;

    std::uint32_t mMeasurement = 0;
    std::uint32_t mRangeLow = 0;
    std::uint32_t mRangeHigh = 4096;
    std::uint32_t mPllSource = 0;

    bool mRecording = false;
    std::vector<Access> mRecord;

    bool mStop = false;
    std::thread mThread;
};

} // namespace simulation
