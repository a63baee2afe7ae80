#pragma once

#include "MiscSource/Hid.h"

class DeviceDirectory;
class LocalDevice;

/// The shell's listings of devices, written to the log.
namespace DeviceListings {

/// @param io I/O devices, else routing devices.
void ShowDevices(const DeviceDirectory& devices, bool io);
/// @param hid only for the headings.
void ShowPortMap(const LocalDevice& local, Hid hid);

} // namespace DeviceListings
