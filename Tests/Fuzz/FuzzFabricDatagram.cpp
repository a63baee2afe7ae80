// A datagram of the switch fabric, up to the log's clock.

#include "OrbModule/Inc/UDPDispatcher/HardwareManager.h"
#include "OrbModule/Inc/UDPDispatcher/UDPDispatcher.h"
#include "Tests/Fuzz/Require.h"

#include <vector>

namespace {

struct Receiver
{
    Receiver()
    {
        // Two lines for each datagram would drown everything else.
        Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::Information), 0);
        dispatcher.Register<SwitchFabric::NetworkTimeMessage, NetworkTimeMessage>(
            [this](const std::shared_ptr<const NetworkTimeMessage>& message) {
                ++messages;
                manager.OnNetworkTimeMessage(message);
            });
    }

    boost::asio::io_service service;
    UDPDispatcher dispatcher{service, 0};
    HardwareManager manager;
    std::size_t messages = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Receiver receiver;
    const std::size_t before = receiver.messages;
    const std::vector<char> exact(data, data + size);
    receiver.dispatcher.Dispatch(exact.data(), exact.size());
    const bool isTime = size >= NetworkTimeMessage::SIZE && data[0] == 20;
    Require(receiver.messages == before + (isTime ? 1 : 0));
    return 0;
}
