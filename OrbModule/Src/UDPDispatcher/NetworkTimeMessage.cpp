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
    std::uint32_t time = 0;
    for (std::size_t i = SIZE; i-- > TIME_OFFSET;)
        time = time << 8 | mImage[i];
    return time;
}

void NetworkTimeMessage::Serialise(char* buffer) const
{
    std::copy(mImage.begin(), mImage.end(), buffer);
}
