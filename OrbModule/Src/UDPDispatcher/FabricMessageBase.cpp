#include "OrbModule/Inc/UDPDispatcher/FabricMessageBase.h"

#include <algorithm>
#include <iostream>

namespace {

/// Size of a message without a body.
constexpr std::size_t DefaultSize = 64;

} // namespace

void FabricMessageBase::GetUDP(std::vector<unsigned char>& out)
{
    out = mData;
    std::cout << "GetUDP Message Type " << (out.empty() ? 0 : static_cast<int>(out.front())) << "\n";
    Validate();
}

void FabricMessageBase::Serialise(char* buffer) const
{
    std::copy(mData.begin(), mData.end(), buffer);
}

std::size_t FabricMessageBase::GetSize() const
{
    return mData.empty() ? DefaultSize : mData.size();
}
