#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"

#include "Audit/Audit.h"
#include "OrbModule/Inc/OrbComms/OrbKLVStream.h"

#include <algorithm>

void OrbSimpleStreamContainer::Store(OrbKLVStream& stream)
{
    AUDIT_STREAM(RouterConnectionDebug,
                 "OrbSimpleStreamContainer Store Stream " << AddressText(stream.GetRemoteIp()) << "\r\n");
    mStreams[Key(stream.GetRemoteIp(), stream.GetStreamType())] = &stream;
}

void OrbSimpleStreamContainer::Remove(OrbKLVStream& stream)
{
    AUDIT_STREAM(RouterConnectionDebug,
                 "OrbSimpleStreamContainer Remove Stream " << AddressText(stream.GetRemoteIp()) << "\r\n");
    const auto entry = mStreams.find(Key(stream.GetRemoteIp(), stream.GetStreamType()));
    if (entry == mStreams.end()) return;
    if (entry->second != &stream) {
        AUDIT_LOG(Information, "SKIPPING REMOVAL OF OLD KLV STREAM\r\n");
        return;
    }
    mStreams.erase(entry);
}

OrbKLVStream* OrbSimpleStreamContainer::GetStreamByPortAndType(UINT8GIGEPORT port, StreamType type)
{
    const auto entry = std::find_if(mStreams.begin(), mStreams.end(), [&](const auto& candidate) {
        return candidate.second->GetPort() == port && candidate.second->GetStreamType() == type;
    });
    return entry == mStreams.end() ? nullptr : entry->second;
}

OrbKLVStream* OrbSimpleStreamContainer::GetStreamByAddressAndType(std::uint32_t address, StreamType type)
{
    AUDIT_STREAM(RouterConnectionDebug, "GetStreamByAddressAndType " << AddressText(address) << "\r\n");
    const auto entry = mStreams.find(Key(address, type));
    return entry == mStreams.end() ? nullptr : entry->second;
}
