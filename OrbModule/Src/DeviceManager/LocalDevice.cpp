#include "OrbModule/Inc/DeviceManager/LocalDevice.h"

#include "Audit/Audit.h"

void LocalDevice::ResetAUInfo(std::uint32_t index)
{
    if (index >= AUDone.size()) {
        AUDIT_LOG(Fault, "ResetAUInfo PORT OUT OF RANGE\r\n");
        return;
    }
    AUDIT_LOG(Information, "ResetAUInfo\r\n");
    // The index counts links from the primary on; the flags are held by isPri.
    const bool isPri = index == 0;
    AUUnderway[isPri] = false;
    AUDone[isPri] = false;
}

std::uint32_t LocalDevice::AUIndex(UINT8GIGEPORT port)
{
    switch (port) {
    case Routing::PRIMARY_PORT:
        return 0;
    case Routing::SECONDARY_PORT:
        return 1;
    default:
        return 2;
    }
}
