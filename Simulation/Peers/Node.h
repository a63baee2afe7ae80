#pragma once

#include "Simulation/Peers/Control.h"
#include "Simulation/Peers/Line.h"
#include "Simulation/Peers/Stream.h"
#include "Simulation/Peers/Wire.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace peers {

/// Where a peer and the module meet. The ports differ from the network's own only in tests on loopback.
struct Place
{
    std::uint32_t own = 0;    ///< host order
    std::uint32_t module = 0; ///< host order
    std::uint16_t localPort = 55000;
    std::uint16_t dataPort = 55100;
    std::uint16_t updatePort = 49190;
};

/// What all peers have in common: streams, the record of what was received, answers that can be late or wrong, and
/// the verbs of the control channel that go with them. One thread. It starts vanished.
class Node
{
public:
    Node(boost::asio::io_service& service, const Place& place);
    virtual ~Node();
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// One line of the control channel.
    void Handle(const std::string& text, const Reply& reply);
    void Appear();
    void Vanish();

protected:
    static std::string AddressOf(std::uint32_t address);

    virtual void OnAppear() {}
    virtual void OnVanish() {}
    /// A stream has come up.
    virtual void OnStream(Stream&) {}
    virtual void OnCommand(Stream&, const Command&) {}
    /// A verb of the kind's own; false if it has none of this name.
    virtual bool OnVerb(const Line&, std::string& /*answer*/) { return false; }
    /// Asked before each attempt to open a stream that is kept open.
    virtual bool MayOpen() { return true; }
    /// A stream has ended or was reset.
    virtual void OnStreamEnded() {}
    /// Lines for the listing of verbs.
    virtual std::string GetHelp() const { return {}; }

    /// Takes connections until the peer vanishes. @param address host order.
    void Listen(std::uint32_t address, std::uint16_t port);
    /// Opens a stream, retries until it is up, and reopens it when it ends, until the peer vanishes.
    void Keep(std::uint32_t address, std::uint16_t port);
    /// Sends what answers a request, in the way that the control channel has ordered for its id.
    void Answer(Stream& stream, std::uint32_t requestId, const std::vector<Command>& commands);
    void SendDatagram(std::uint16_t port, const Bytes& bytes);
    /// The newest stream of that name, or null.
    Stream* Find(const std::string& name);
    Stream& Need(const std::string& name);
    bool IsPresent() const { return mPresent; }
    /// Looks at everything that is waited for.
    void CheckWaits();
    void WaitFor(std::function<bool(std::string&)> done, std::uint32_t milliseconds, const Reply& reply);

    boost::asio::io_service& mService;
    Place mPlace;

private:
    enum class AnswerMode { Normal, Late, Never, Wrong, Short, Garbage };
    struct Order
    {
        AnswerMode mode = AnswerMode::Normal;
        std::chrono::milliseconds delay{0};
    };
    struct Entry
    {
        std::uint32_t number;
        std::string stream;
        Command command;
    };
    struct Wait
    {
        std::function<bool(std::string&)> done;
        Reply reply;
        boost::asio::steady_timer timer;
    };
    struct Kept
    {
        boost::asio::ip::tcp::endpoint target;
        boost::asio::ip::tcp::socket socket;
        boost::asio::steady_timer timer;
        Stream* stream = nullptr;
    };

    void Accept(const std::shared_ptr<boost::asio::ip::tcp::acceptor>& acceptor);
    Stream& Adopt(boost::asio::ip::tcp::socket socket, std::uint16_t port);
    void Ended(Stream& stream);
    void Open(Kept& kept);
    std::string NameOf(std::uint16_t port) const;
    void Received(Stream& stream, const Command& command);
    static Command Alter(Command command, AnswerMode mode);

    bool HandleCommon(const Line& line, std::string& answer);
    void HandleWait(const Line& line, const Reply& reply);
    void HandleAnswer(const Line& line);
    void HandleConnect(const Line& line);
    void HandleDisconnect(const Line& line);
    std::string GetReceived(const Line& line) const;
    std::string GetStreams() const;
    std::uint32_t CountOf(std::uint32_t id, std::string* last) const;
    static std::string TextOf(const Entry& entry);

    bool mPresent = false;
    bool mStalled = false;
    std::list<std::shared_ptr<Stream>> mStreams;
    std::vector<std::shared_ptr<boost::asio::ip::tcp::acceptor>> mAcceptors;
    std::list<Kept> mKept;
    std::vector<Entry> mReceived;
    std::uint32_t mNumber = 0;
    std::map<std::uint32_t, Order> mOrders;
    std::list<Wait> mWaits;
    boost::asio::steady_timer mReboot;
    boost::asio::ip::udp::socket mDatagrams;
};

} // namespace peers
