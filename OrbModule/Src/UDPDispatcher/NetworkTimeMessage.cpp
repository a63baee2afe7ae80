#include "OrbModule/Inc/UDPDispatcher/NetworkTimeMessage.h"

#include <algorithm>

NetworkTimeMessage::NetworkTimeMessage(const char* bytes)
{
    std::copy(bytes + TIME_OFFSET, bytes + SIZE, mImage.begin() + TIME_OFFSET);
}

void NetworkTimeMessage::Serialise(char* buffer) const
{
    std::copy(mImage.begin(), mImage.end(), buffer);
}
