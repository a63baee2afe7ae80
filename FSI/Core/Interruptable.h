#pragma once

#include "FSI/Core/HostFsi.h"

#include <bitset>
#include <boost/signals2/connection.hpp>
#include <boost/signals2/signal.hpp>
#include <memory>
#include <string>
#include <vector>

namespace fsi {

/// Mix-in of a device that raises interrupt events: a signal for each event that it declares.
///
/// Dispatch, and so every slot, runs on the main thread. ConnectSlot may be called from any thread. All events
/// are enabled from construction on; the destructor disables them.
class Interruptable
{
public:
    /// One event number of a block, 0 to 31.
    class Interrupt
    {
    public:
        Interrupt() = default;
        Interrupt(int event);

        int GetEvent() const { return mEvent; }
        friend bool operator==(const Interrupt& a, const Interrupt& b) { return a.mEvent == b.mEvent; }

    private:
        int mEvent = -1;
    };

    /// @param interrupts the events of the device, at least one, in the order of their dispatch
    Interruptable(HostFsi& fsi, const std::vector<Interrupt>& interrupts);
    virtual ~Interruptable() { mFsi.SetInterruptEnables(0); }
    Interruptable(const Interruptable&) = delete;
    Interruptable& operator=(const Interruptable&) = delete;

    void EnableInterrupt(const Interrupt& interrupt);
    void DisableInterrupt(const Interrupt& interrupt);
    /// Of its block.
    std::string GetName() const { return mFsi.GetName(); }
    /// The descriptor that polls readable on an interrupt of this device.
    int GetFileDescriptor() const { return mFsi.GetFileDescriptor(); }

    /// Acknowledges each declared event that is pending and fires its signal. Others stay pending.
    void DispatchInterrupts();

    /// Connects a callable without arguments to a declared event.
    template <typename Callable>
    boost::signals2::connection ConnectSlot(const Interrupt& interrupt, const Callable& callable)
    {
        return GetSignal(interrupt).connect(callable);
    }

private:
    using Signal = boost::signals2::signal<void()>;
    struct Entry
    {
        Interrupt interrupt;
        std::unique_ptr<Signal> signal;
    };

    Signal& GetSignal(const Interrupt& interrupt);
    void WriteMask() { mFsi.SetInterruptEnables(static_cast<std::uint32_t>(mMask.to_ulong())); }

    HostFsi& mFsi;
    std::vector<Entry> mEntries;
    std::bitset<32> mMask;
};

} // namespace fsi
