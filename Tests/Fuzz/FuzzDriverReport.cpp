// A datagram from the link driver, and the link that would follow from it.

#include "OrbModule/Inc/LinkManager/K2LinkDriver.h"
#include "OrbModule/Inc/LinkManager/LinkRules.h"
#include "Tests/Fuzz/Require.h"

#include <cstring>
#include <memory>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    // A block of its own, at an address as the socket's buffers have it and with nothing after it.
    const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
    if (size != 0) std::memcpy(bytes.get(), data, size);
    K2LinkStatus status;
    K2LinkDriver::ReadReport(bytes.get(), size, status);
    const LinkRules::LinkEndpoints link = LinkRules::ComputeEndpoints(0x23, status);
    const boost::asio::ip::udp::endpoint none;
    Require((link.local == none) == (link.remote == none));
    Require(LinkRules::DecideLinkChange(link.local, link.local) == LinkRules::LinkChange::None);
    return 0;
}
