#pragma once

#include "FSI/Audio/ExternalClockSource.h"
#include "FSI/Audio/ExternalReferenceFsi.h"

#include <array>
#include <boost/asio/io_service.hpp>
#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <vector>

namespace audio {

/// Decides which reference the audio clock follows: keeps the last measurement of every source, checks it against the
/// range of the sample rate family, takes the enabled stable source of the best priority, and watches the servo loop
/// lock on to it. Falls back to source 0, the internal clock, when no external one qualifies.
///
/// Everything happens on the main thread. What changes the choice of sources posts its work there, in the order of the
/// calls; work that is still queued when the manager is destroyed does nothing. Held by shared pointer, and in its
/// destructor it uses only its own connections.
class ExternalClockManager : public std::enable_shared_from_this<ExternalClockManager>
{
public:
    enum class LockState : std::uint32_t { None = 0, Locking = 1, Locked = 2 };

    /// What is known of one source.
    struct Clock
    {
        explicit Clock(std::uint32_t id) : mId(id) {}

        std::uint32_t mId;
        /// Lower is better.
        std::int32_t mPriority = 0x7FFFFFFF;
        std::uint32_t mMeasure = 0;
        /// 1 if the measurement is in the range.
        std::uint32_t mStable = 0;
        LockState mLockState = LockState::None;
        /// The source may be selected.
        bool mEnabled = true;
    };
    using Clocks = std::vector<std::shared_ptr<Clock>>;

    /// Measured values that a family of sample rates accepts, both ends included.
    struct Range
    {
        std::uint32_t minimum;
        std::uint32_t maximum;

        constexpr bool Holds(std::uint32_t value) const { return value >= minimum && value <= maximum; }
    };
    /// By index: the 44.1 kHz family, the 48 kHz family.
    static constexpr std::array<Range, 2> AcceptanceRanges{{{1228876, 1278876}, {1129000, 1175000}}};

    /// The order of preference: by priority; at equal priority the internal clock last and lower ids first.
    static bool ComesBefore(const Clock& a, const Clock& b);
    /// The id of the first clock that is enabled and stable, 0 if there is none.
    static std::uint32_t ChooseClock(const Clocks& inOrder);

    ExternalClockManager(boost::asio::io_service& service, std::shared_ptr<ExternalReferenceFsi> fsi);
    ExternalClockManager(const ExternalClockManager&) = delete;
    ExternalClockManager& operator=(const ExternalClockManager&) = delete;

    /// Fired with the id of the selected source when the servo loop has locked.
    boost::signals2::signal<void(unsigned int id)> mClockLocked;

    // These six post their work.
    void PrioritiseClockSource(const ExternalClockSource& source, std::int32_t priority, bool enable);
    void EnableClockSource(const ExternalClockSource& source);
    void DisableClockSource(const ExternalClockSource& source);
    /// Follows the internal clock until EnableAutoSelect.
    void UseInternalClock();
    void EnableAutoSelect();
    /// As UseInternalClock, but after that the PLL is set to this source, without lock or loss being watched.
    void ForcePllSource(const ExternalClockSource& source);

    /// Id of the source that is followed, 0 for the internal clock.
    std::uint32_t GetSelected() const { return mSelected; }
    /// Takes effect with the next measurement of each source.
    /// @param index into AcceptanceRanges
    void SetRateToCheck(std::uint32_t index);
    std::shared_ptr<ExternalReferenceFsi> GetFsi() const { return mFsi; }

    /// The table of all sources in the order of preference.
    friend std::ostream& operator<<(std::ostream& out, const ExternalClockManager& manager);

private:
    /// Measurements that a source may take to lock.
    static constexpr std::uint32_t LockAttempts = 3;

    template <typename Work>
    void Post(Work work);
    void SetEnabled(std::uint32_t id, bool enabled, const char* noSuchClock);
    void SelectClock();
    void OnMeasurement();
    void OnMeasurementOfSelected(Clock& clock);
    void OnLoss();
    void OnSettled();

    boost::asio::io_service& mIoService;
    const std::shared_ptr<ExternalReferenceFsi> mFsi;
    /// By id; entry 0 is the internal clock.
    Clocks mClocks;
    Clocks mPriorityOrder;
    std::uint32_t mSelected = 0;
    bool mAutoSelectOff = false;
    std::uint32_t mLockAttempts{};
    std::uint32_t mRateToCheck = 1;
    std::vector<boost::signals2::scoped_connection> mConnections;
};

} // namespace audio
