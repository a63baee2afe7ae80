#include "FSI/Audio/ExternalClockManager.h"

#include "Audit/Audit.h"
#include "MiscSource/FatalAssert.h"
#include "MiscSource/GlobalConstants.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <tuple>
#include <utility>

namespace audio {

bool ExternalClockManager::ComesBefore(const Clock& a, const Clock& b)
{
    const bool aInternal = a.mId == 0;
    const bool bInternal = b.mId == 0;
    return std::tie(a.mPriority, aInternal, a.mId) < std::tie(b.mPriority, bInternal, b.mId);
}

std::uint32_t ExternalClockManager::ChooseClock(const Clocks& inOrder)
{
    const auto chosen = std::find_if(inOrder.begin(), inOrder.end(), [](const std::shared_ptr<Clock>& clock) {
        return clock->mEnabled && clock->mStable != 0;
    });
    return chosen == inOrder.end() ? 0 : (*chosen)->mId;
}

ExternalClockManager::ExternalClockManager(boost::asio::io_service& service, std::shared_ptr<ExternalReferenceFsi> fsi)
    : mIoService(service), mFsi(std::move(fsi))
{
    for (std::uint32_t id = 0; id <= ExternalReferenceFsi::GetMaximumClockId(); ++id)
        mClocks.push_back(std::make_shared<Clock>(id));
    mPriorityOrder.assign(mClocks.begin() + 1, mClocks.end());
    mPriorityOrder.push_back(mClocks.front());

    mConnections.emplace_back(mFsi->ConnectSlot(ExternalReferenceFsi::MeasurementEvent, [this] { OnMeasurement(); }));
    mConnections.emplace_back(mFsi->ConnectSlot(ExternalReferenceFsi::LossEvent, [this] { OnLoss(); }));
    mConnections.emplace_back(mFsi->ConnectSlot(ExternalReferenceFsi::SecondLossEvent, [this] { OnLoss(); }));
    mConnections.emplace_back(mFsi->ConnectSlot(ExternalReferenceFsi::SettleEvent, [this] { OnSettled(); }));
}

template <typename Work>
void ExternalClockManager::Post(Work work)
{
    mIoService.post([weak = weak_from_this(), work] {
        if (const std::shared_ptr<ExternalClockManager> self = weak.lock()) work(*self);
    });
}

void ExternalClockManager::PrioritiseClockSource(const ExternalClockSource& source, std::int32_t priority, bool enable)
{
    Post([id = source.GetId(), priority, enable](ExternalClockManager& self) {
        FATAL_ASSERT(id < self.mClocks.size(), "Prioritise: Id greater than maximum supported value.");
        self.mClocks[id]->mPriority = priority;
        self.mClocks[id]->mEnabled = enable;
        std::sort(self.mPriorityOrder.begin(), self.mPriorityOrder.end(),
                  [](const auto& a, const auto& b) { return ComesBefore(*a, *b); });
        self.SelectClock();
    });
}

void ExternalClockManager::EnableClockSource(const ExternalClockSource& source)
{
    SetEnabled(source.GetId(), true, "Enable: Id greater than maximum supported value.");
}

void ExternalClockManager::DisableClockSource(const ExternalClockSource& source)
{
    SetEnabled(source.GetId(), false, "Disable: Id greater than maximum supported value.");
}

void ExternalClockManager::SetEnabled(std::uint32_t id, bool enabled, const char* noSuchClock)
{
    Post([id, enabled, noSuchClock](ExternalClockManager& self) {
        FATAL_ASSERT(id < self.mClocks.size(), noSuchClock);
        self.mClocks[id]->mEnabled = enabled;
        self.SelectClock();
    });
}

void ExternalClockManager::UseInternalClock()
{
    Post([](ExternalClockManager& self) {
        self.mAutoSelectOff = true;
        self.mSelected = 0;
        self.mFsi->SetInternalPllSource();
    });
}

void ExternalClockManager::EnableAutoSelect()
{
    Post([](ExternalClockManager& self) {
        self.mAutoSelectOff = false;
        self.SelectClock();
    });
}

void ExternalClockManager::ForcePllSource(const ExternalClockSource& source)
{
    UseInternalClock();
    Post([id = source.GetId()](ExternalClockManager& self) { self.mFsi->SetExternalPllSource(id); });
}

void ExternalClockManager::SetRateToCheck(std::uint32_t index)
{
    FATAL_ASSERT(index < AcceptanceRanges.size(), "SetRateToCheck: no such range.");
    AUDIT_LOG(Information, "ExternalClockManager Rate To Check is %u\n", mRateToCheck);
    mRateToCheck = index;
}

void ExternalClockManager::SelectClock()
{
    if (mAutoSelectOff) return;
    const std::uint32_t chosen = ChooseClock(mPriorityOrder);
    if (chosen == mSelected) return;

    mClocks[mSelected]->mLockState = LockState::None;
    mClocks[chosen]->mLockState = LockState::Locking;
    mSelected = chosen;
    mLockAttempts = LockAttempts;
    mFsi->SetExternalPllSource(chosen);
    if (chosen != 0) mFsi->EnableInterrupt(ExternalReferenceFsi::SettleEvent);
}

void ExternalClockManager::OnMeasurement()
{
    const std::uint32_t word = mFsi->ReadMeasurement();
    const std::uint32_t id = word & 0xFF;
    const std::uint32_t value = word >> 8;
    if (id >= mClocks.size()) {
        AUDIT_LOG(Fault, "Measure: Id greater than maximum supported value. Id %u\n", id);
        return;
    }
    Clock& clock = *mClocks[id];
    FATAL_ASSERT(clock.mId == id, "Id to index mismatch.");

    const Range& range = AcceptanceRanges[mRateToCheck];
    const bool wasStable = clock.mStable != 0;
    clock.mMeasure = value;
    AUDIT_STREAM(SyncSelectorDebug, "NotifyMeasurementAvailable Id " << id << " value " << value << " range "
                                                                     << range.minimum << range.maximum << "\n");
    clock.mStable = range.Holds(value);
    if (clock.mStable && !wasStable) AUDIT_LOG(Information, "Clock %u inside accept measurements \r\n", id);

    if (id == mSelected)
        OnMeasurementOfSelected(clock);
    else if (clock.mStable && !wasStable)
        SelectClock();
}

void ExternalClockManager::OnMeasurementOfSelected(Clock& clock)
{
    // The internal clock has no servo loop to lock.
    if (clock.mId == 0) return;
    if (clock.mLockState == LockState::Locking) {
        if (mFsi->IsServoLocked()) {
            mClockLocked(mSelected);
            clock.mLockState = LockState::Locked;
            clock.mStable = 1;
        } else if (--mLockAttempts == 0) {
            AUDIT_LOG(Fault, "No servo loop lock after a number of attempts\r\n");
            clock.mStable = 0;
            SelectClock();
        }
    } else if (clock.mLockState == LockState::Locked && clock.mStable == 0) {
        SelectClock();
    }
}

void ExternalClockManager::OnLoss()
{
    mClocks[mSelected]->mMeasure = 0;
    mClocks[mSelected]->mStable = 0;
    SelectClock();
}

void ExternalClockManager::OnSettled()
{
    mFsi->DisableInterrupt(ExternalReferenceFsi::SettleEvent);
    SelectClock();
}

std::ostream& operator<<(std::ostream& out, const ExternalClockManager& manager)
{
    out << std::setw(3) << "Id" << std::setw(8) << "Enabled" << std::setw(8) << "Measure" << std::setw(9) << "State"
        << "\n";
    for (const std::shared_ptr<ExternalClockManager::Clock>& clock : manager.mPriorityOrder) {
        out << std::setw(3) << clock->mId << std::setw(8) << FlagText(clock->mEnabled) << std::setw(8)
            << clock->mMeasure << std::setw(9) << (clock->mStable ? "stable" : "unstable");
        if (clock->mLockState == ExternalClockManager::LockState::Locking) out << " locking";
        if (clock->mLockState == ExternalClockManager::LockState::Locked) out << " locked";
        if (clock->mId == manager.mSelected && clock->mId != 0)
            out << " [selected" << (manager.mAutoSelectOff ? ", auto-select off" : "") << "]";
        out << "\n";
    }
    return out;
}

} // namespace audio
