#include "OrbModule/Inc/DeviceManager/ActiveRouterTimer.h"

#include "Audit/Audit.h"
#include "Common/KLV/Commands/DiscoveryCommands.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

void ActiveRouterTimer::DoActiveAudio(Side side)
{
    AUDIT_STREAM(IODiscovery, "DoActiveAudio, Pri: " << FlagText(IsPrimary(side)) << "\n");
    if (IsPrimary(side)) {
        AUDIT_LOG(Information, "Sending IoActiveRouter on primary port\r\n");
        mComms.SendLocal(IoActiveRouter(), Routing::PRIMARY_PORT);
        return;
    }
    mActiveTimer.expires_after(mSecondaryDelay);
    // The error code is not looked at: a wait that a later call cancels sends at once.
    mActiveTimer.async_wait([this](const boost::system::error_code&) {
        AUDIT_LOG(Information, "Sending IoActiveRouter on secondary port\r\n");
        mComms.SendLocal(IoActiveRouter(), Routing::SECONDARY_PORT);
    });
}
