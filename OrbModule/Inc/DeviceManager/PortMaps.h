#pragma once

#include "OrbModule/Inc/DeviceManager/DeviceInfoStorage.h"

class LocalDevice;

/// The port maps of the local box, from its description.
namespace PortMaps {

void Build(LocalDevice& local, const IoInfo& box);
void Build(LocalDevice& local, const DeviceInfoStorage::CommandMap& cards);
void Build(LocalDevice& local, const IoInfoK2Mod& module);

} // namespace PortMaps
