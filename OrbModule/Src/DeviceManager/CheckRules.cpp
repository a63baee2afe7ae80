#include "OrbModule/Inc/DeviceManager/CheckRules.h"

namespace CheckRules {

Request OfStream(const LocalDevice& local, Side side)
{
    if (local.IsRoutingDevice()) {
        const bool isUnchecked = local.Check(side) != SoftwareCheck::UnderWay;
        return K2Heartbeat::IsHub(local.Type) && isUnchecked ? Request::HubCheck : Request::RouterInfo;
    }
    if (!local.IsIoDevice()) return Request::Nothing;
    if (local.IsAUDone()) return Request::IoInfo;
    return local.IsAUUnderway() ? Request::AwaitCheck : Request::IoCheck;
}

} // namespace CheckRules
