#include "K2Common/K2Heartbeat.h"

#include "Audit/Audit.h"

#include <algorithm>

namespace K2Heartbeat {

LinkState::LinkState(Hid hid, LinkType LType, LinkVariant variant)
{
    AUDIT_ASSERT_MESSAGE(LType == K2_ROUTER_TYPE || LType == K2_HUB_TYPE || LType == K2_ORB_TYPE,
                         "This LinkState constructor can only be used for routing devices\n");
    SetWord(HID_OFFSET, hid);
    mBytes[TYPE_OFFSET] = LType;
    SetWord(VARIANT_OFFSET, variant);
}

LinkState::LinkState(const std::uint8_t* bytes)
{
    std::copy_n(bytes, SIZE, mBytes.begin());
}

std::uint32_t LinkState::GetWord(std::size_t offset) const
{
    return static_cast<std::uint32_t>(mBytes[offset]) | static_cast<std::uint32_t>(mBytes[offset + 1]) << 8 |
           static_cast<std::uint32_t>(mBytes[offset + 2]) << 16 | static_cast<std::uint32_t>(mBytes[offset + 3]) << 24;
}

void LinkState::SetWord(std::size_t offset, std::uint32_t value)
{
    for (std::size_t i = 0; i < 4; ++i)
        mBytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

} // namespace K2Heartbeat
