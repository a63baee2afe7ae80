// A datagram of the switch fabric, up to the log's clock.

#include "OrbModule/Inc/UDPDispatcher/HardwareManager.h"
#include "OrbModule/Inc/UDPDispatcher/UDPDispatcher.h"
#include "Tests/Fuzz/Require.h"
#include "Tests/Support/QuietLog.h"

#include <vector>

namespace {

struct Receiver
{
    Receiver()
    {
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
    QuietLog::Install();
    static Receiver receiver;
    const std::size_t before = receiver.messages;
    const std::vector<char> exact(data, data + size);
    receiver.dispatcher.Dispatch(exact.data(), exact.size());
    const bool isTime = size >= NetworkTimeMessage::SIZE && data[0] == 20;
    Require(receiver.messages == before + (isTime ? 1 : 0));
    return 0;
}
