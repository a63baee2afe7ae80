// A datagram from the link driver, and the link that would follow from it.

#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"
#include "OrbModule/Inc/LinkManager/LinkRules.h"

#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A block of its own, at an address as the socket's buffers have it and with nothing behind it.
    std::uint8_t* const bytes = static_cast<std::uint8_t*>(std::malloc(size != 0 ? size : 1));
    if (size != 0) std::memcpy(bytes, data, size);
    K2LinkStatus status;
    K2LinkDriver::ReadReport(bytes, size, status);
    std::free(bytes);

    const LinkRules::LinkEndpoints link = LinkRules::ComputeEndpoints(0x23, status);
    const boost::asio::ip::udp::endpoint none;
    if ((link.local == none) != (link.remote == none)) std::abort();
    if (LinkRules::DecideLinkChange(link.local, link.local) != LinkRules::LinkChange::None) std::abort();
    return 0;
}
