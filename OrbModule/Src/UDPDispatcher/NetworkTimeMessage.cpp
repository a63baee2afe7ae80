#include "OrbModule/Inc/UDPDispatcher/NetworkTimeMessage.h"

#include "OrbModule/Inc/UDPDispatcher/SwitchFabric.h"

#include <algorithm>
#include <cstring>

NetworkTimeMessage::NetworkTimeMessage()
{
    mImage[0] = SwitchFabric::NetworkTimeMessage;
}

NetworkTimeMessage::NetworkTimeMessage(const char* bytes)
{
    std::memcpy(mImage.data(), bytes, mImage.size());
    mImage[0] = SwitchFabric::NetworkTimeMessage;
}

std::uint32_t NetworkTimeMessage::GetTime() const
{
    return static_cast<std::uint32_t>(mImage[1]) | static_cast<std::uint32_t>(mImage[2]) << 8 |
           static_cast<std::uint32_t>(mImage[3]) << 16 | static_cast<std::uint32_t>(mImage[4]) << 24;
}

void NetworkTimeMessage::Serialise(char* buffer) const
{
    std::copy(mImage.begin(), mImage.end(), buffer);
}
