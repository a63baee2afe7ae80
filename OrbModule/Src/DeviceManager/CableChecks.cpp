#include "OrbModule/Inc/DeviceManager/CableChecks.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/NotificationCommands.h"
#include "OrbModule/Inc/DeviceManager/DeviceDirectory.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

void CableChecks::Start(Hid hid, Side other)
{
    if (mCableChecks.size() >= mLimit) {
        if (!mLimitReported)
            AUDIT_LOG(Fault, "Too many cable checks are pending (%lu), further ones are left out\n",
                      static_cast<unsigned long>(mCableChecks.size()));
        mLimitReported = true;
        return;
    }
    const auto check = mCableChecks.insert(mCableChecks.end(), {hid, other, boost::asio::steady_timer(mIoService)});
    check->timer.expires_after(mDelay);
    check->timer.async_wait([this, check](const boost::system::error_code& error) { DelayedCableCheck(error, check); });
}

void CableChecks::DelayedCableCheck(const boost::system::error_code& error, Pending::iterator check)
{
    if (error) AUDIT_STREAM(IODiscovery, "DelayedCableCheck: timer error '" << error.message() << "'\n");
    AUDIT_STREAM(IODiscovery, "DelayedCableCheck: for Hid: " << check->hid << ", port: "
                                                             << (IsPrimary(check->other) ? "Pri" : "Sec") << "\n");
    if (!mDevices.LinkOnline(check->hid, check->other))
        mComms.SendToOrb(RemoteCableStateCmd(check->hid, IsPrimary(check->other), false));
    mCableChecks.erase(check);
}
