#include "OrbModule/Inc/DeviceManager/LocalDevice.h"

#include "Audit/Audit.h"

void LocalDevice::ResetAUInfo(std::uint32_t index)
{
    if (index >= Checks.size()) {
        AUDIT_LOG(Fault, "ResetAUInfo PORT OUT OF RANGE\r\n");
        return;
    }
    AUDIT_LOG(Information, "ResetAUInfo\r\n");
    Checks[index] = SoftwareCheck::None;
}
