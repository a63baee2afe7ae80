#include "FSI/Core/Interruptable.h"

#include "MiscSource/FatalAssert.h"

#include <algorithm>
#include <cstddef>

namespace fsi {

namespace {

std::size_t Bit(const Interruptable::Interrupt& interrupt)
{
    FATAL_ASSERT(interrupt.GetEvent() >= 0, "Interrupt events are non-negative.");
    return static_cast<std::size_t>(interrupt.GetEvent());
}

} // namespace

Interruptable::Interrupt::Interrupt(int event) : mEvent(event)
{
    FATAL_ASSERT(event >= 0, "Interrupt events are non-negative.");
    FATAL_ASSERT(event < 32, "Only 32 interrupt events are supported.");
}

Interruptable::Interruptable(HostFsi& fsi, const std::vector<Interrupt>& interrupts) : mFsi(fsi)
{
    FATAL_ASSERT(!interrupts.empty(), "An Interruptable device must specify some interrupts!");
    for (const Interrupt& interrupt : interrupts) {
        mEntries.push_back({interrupt, std::make_unique<Signal>()});
        mMask.set(Bit(interrupt));
    }
    WriteMask();
}

void Interruptable::EnableInterrupt(const Interrupt& interrupt)
{
    mMask.set(Bit(interrupt));
    WriteMask();
}

void Interruptable::DisableInterrupt(const Interrupt& interrupt)
{
    mMask.reset(Bit(interrupt));
    WriteMask();
}

void Interruptable::DispatchInterrupts()
{
    const std::bitset<32> pending(mFsi.ReadInterruptPending());
    for (const Entry& entry : mEntries) {
        if (!pending.test(Bit(entry.interrupt))) continue;
        mFsi.AcknowledgeInterrupt(entry.interrupt.GetEvent());
        (*entry.signal)();
    }
}

Interruptable::Signal& Interruptable::GetSignal(const Interrupt& interrupt)
{
    const auto entry = std::find_if(mEntries.begin(), mEntries.end(),
                                    [&](const Entry& candidate) { return candidate.interrupt == interrupt; });
    FATAL_ASSERT(entry != mEntries.end(), "Attempt to connect to unknown interrupt.");
    return *entry->signal;
}

} // namespace fsi
