#pragma once

#include "OrbModule/Inc/DeviceManager/LocalDevice.h"

/// What a new stream of the local device is asked first, as a function of values: I/O boxes are checked once, hubs on
/// each link, other routing devices not at all. Without state; SoftwareChecks acts on the outcome.
namespace CheckRules {

enum class Request { Nothing, RouterInfo, HubCheck, IoCheck, AwaitCheck, IoInfo };

Request OfStream(const LocalDevice& local, Side side);

} // namespace CheckRules
