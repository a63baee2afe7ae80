#pragma once

#include "Audit/Audit.h"
#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/UDPDispatcher/SwitchFabric.h"

#include <array>
#include <boost/any.hpp>
#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/core/demangle.hpp>
#include <boost/signals2/signal.hpp>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <typeinfo>

/// Receives the switch fabric messages and turns each into a typed message and a signal. A further message needs one
/// class, with a constant SIZE and a constructor from that many bytes, and one registration. All of it runs on the
/// main service.
class UDPDispatcher
{
public:
    template <class Message>
    using SignalType = boost::signals2::signal<void(std::shared_ptr<const Message>)>;

    /// @throws std::runtime_error that names the port if it is taken.
    explicit UDPDispatcher(boost::asio::io_service& service, std::uint16_t port = NetworkPorts::SWITCH_FABRIC);
    UDPDispatcher(const UDPDispatcher&) = delete;
    UDPDispatcher& operator=(const UDPDispatcher&) = delete;

    /// Connects a slot to the messages of a number. A number belongs to the class of its first registration; with
    /// another one the slot is not connected. Before the service runs.
    template <SwitchFabric::SwitchFabricMessages Number, class Message>
    void Register(const typename SignalType<Message>::slot_type& slot)
    {
        auto found = mHandlers.find(Number);
        if (found == mHandlers.end()) {
            auto signal = std::make_shared<SignalType<Message>>();
            Decoder decoder = [signal](const char* bytes) { (*signal)(std::make_shared<const Message>(bytes)); };
            found = mHandlers.emplace(Number, Handler{Message::SIZE, decoder, signal}).first;
        }
        const auto held = boost::any_cast<std::shared_ptr<SignalType<Message>>>(&found->second.signal);
        const std::shared_ptr<SignalType<Message>> Signal = held ? *held : nullptr;
        if (!AUDIT_ASSERT_MESSAGE(Signal, "Failed to get signal of type " +
                                              boost::core::demangle(typeid(Message).name()) +
                                              " for Switch Fabric Message " + std::to_string(Number) + "\n")) {
            return;
        }
        Signal->connect(slot);
    }

    /// The port that the socket is bound to.
    std::uint16_t GetPort() const { return mSocket.local_endpoint().port(); }

    /// Decodes one datagram: drops unknown numbers and messages that are too short.
    void Dispatch(const char* bytes, std::size_t size) const;

private:
    using Decoder = std::function<void(const char*)>;
    struct Handler
    {
        std::size_t size;
        Decoder decoder;
        /// Holds a std::shared_ptr to the message's signal.
        boost::any signal;
    };

    void StartReceive();
    void ReceivePacket(const boost::system::error_code& error, std::size_t bytes);
    void ReportFault(const std::string& text);

    std::map<int, Handler> mHandlers;
    boost::asio::io_service& mIoService;
    boost::asio::ip::udp::socket mSocket;
    boost::asio::ip::udp::endpoint mSender;
    std::array<char, 512> mBuffer{};
    boost::asio::steady_timer mRetryTimer;
    /// The last datagram's; empty if it was well received.
    std::string mFault;
};
