#include "K2Common/K2Heartbeat.h"

#include "Audit/Audit.h"

#include <algorithm>

namespace K2Heartbeat {

LinkState::LinkState(Hid hid, LinkType LType, LinkVariant variant)
{
    AUDIT_ASSERT_MESSAGE(LType == K2_ROUTER_TYPE || LType == K2_HUB_TYPE || LType == K2_ORB_TYPE,
                         "This LinkState constructor can only be used for routing devices\n");
    StoreLittleEndian(std::uint32_t{hid}, &mBytes[HID_OFFSET]);
    mBytes[TYPE_OFFSET] = LType;
    StoreLittleEndian(variant, &mBytes[VARIANT_OFFSET]);
}

LinkState::LinkState(const std::uint8_t* bytes)
{
    std::copy_n(bytes, SIZE, mBytes.begin());
}

} // namespace K2Heartbeat
