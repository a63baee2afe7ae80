#include "Simulation/Peers/Node.h"

#include "Simulation/Peers/Messages.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/ip/address_v4.hpp>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <utility>

namespace peers {

using boost::asio::ip::tcp;
using boost::asio::ip::udp;
using boost::system::error_code;

namespace {

constexpr std::chrono::milliseconds RetryPeriod{100};
constexpr std::size_t MaxReceived = 1000000;

tcp::endpoint EndpointOf(std::uint32_t address, std::uint16_t port)
{
    return {boost::asio::ip::address_v4(address), port};
}

} // namespace

Node::Node(boost::asio::io_service& service, const Place& place)
    : mService(service), mPlace(place), mReboot(service), mDatagrams(service)
{}

Node::~Node()
{
    for (const auto& stream : mStreams)
        stream->Close(false);
}

std::string Node::AddressOf(std::uint32_t address)
{
    return boost::asio::ip::address_v4(address).to_string();
}

void Node::Appear()
{
    if (mPresent) return;
    mPresent = true;
    OnAppear();
}

void Node::Vanish()
{
    mReboot.cancel();
    if (!mPresent) return;
    mPresent = false;
    OnVanish();
    for (const auto& acceptor : mAcceptors)
        acceptor->close();
    mAcceptors.clear();
    for (Kept& kept : mKept) {
        kept.timer.cancel();
        error_code ignored;
        kept.socket.close(ignored);
    }
    mKept.clear();
    for (const auto& stream : mStreams)
        stream->Close(true);
    mStreams.clear();
    CheckWaits();
}

void Node::Listen(std::uint32_t address, std::uint16_t port)
{
    const auto acceptor = std::make_shared<tcp::acceptor>(mService);
    const tcp::endpoint endpoint = EndpointOf(address, port);
    acceptor->open(endpoint.protocol());
    acceptor->set_option(tcp::acceptor::reuse_address(true));
    acceptor->set_option(ReusePort(true)); // the same port may be the source of a stream, too
    acceptor->bind(endpoint);
    acceptor->listen();
    mAcceptors.push_back(acceptor);
    Accept(acceptor);
}

void Node::Accept(const std::shared_ptr<tcp::acceptor>& acceptor)
{
    acceptor->async_accept([this, acceptor](const error_code& error, tcp::socket socket) {
        if (!acceptor->is_open()) return;
        if (!error) {
            error_code ignored;
            const std::uint16_t port = acceptor->local_endpoint(ignored).port();
            OnStream(Adopt(std::move(socket), port));
        }
        Accept(acceptor);
    });
}

std::string Node::NameOf(std::uint16_t port) const
{
    if (port == mPlace.dataPort) return "data";
    if (port == mPlace.updatePort) return "update";
    return "local";
}

Stream& Node::Adopt(tcp::socket socket, std::uint16_t port)
{
    const auto stream = std::make_shared<Stream>(std::move(socket), NameOf(port));
    mStreams.push_back(stream);
    stream->Start([this](Stream& from, const Command& command) { Received(from, command); },
                  [this](Stream& ended) { Ended(ended); });
    if (mStalled) stream->Stall(true);
    CheckWaits();
    return *stream;
}

void Node::Ended(Stream& stream)
{
    mStreams.remove_if([&stream](const auto& entry) { return entry.get() == &stream; });
    OnStreamEnded();
    for (Kept& kept : mKept)
        if (kept.stream == &stream) {
            kept.stream = nullptr;
            Open(kept);
        }
    CheckWaits();
}

void Node::Keep(std::uint32_t address, std::uint16_t port)
{
    mKept.push_back({EndpointOf(address, port), tcp::socket(mService), boost::asio::steady_timer(mService), nullptr});
    Open(mKept.back());
}

void Node::Open(Kept& kept)
{
    const auto alive = [this, name = &kept] {
        return std::any_of(mKept.begin(), mKept.end(), [name](const Kept& entry) { return &entry == name; });
    };
    const auto again = [this, &kept, alive] {
        kept.timer.expires_after(RetryPeriod);
        kept.timer.async_wait([this, &kept, alive](const error_code& error) {
            if (!error && alive()) Open(kept);
        });
    };
    error_code error;
    kept.socket.close(error);
    if (!MayOpen()) return again();
    kept.socket.open(tcp::v4(), error);
    kept.socket.bind(EndpointOf(mPlace.own, 0), error);
    if (error) return again();
    kept.socket.async_connect(kept.target, [this, &kept, alive, again](const error_code& failed) {
        if (failed == boost::asio::error::operation_aborted || !alive()) return;
        if (failed) return again();
        const std::uint16_t port = kept.target.port();
        Stream& stream = Adopt(std::move(kept.socket), port);
        kept.socket = tcp::socket(mService);
        kept.stream = &stream;
        OnStream(stream);
    });
}

void Node::Received(Stream& stream, const Command& command)
{
    if (mReceived.size() < MaxReceived) mReceived.push_back({++mNumber, stream.GetName(), command});
    OnCommand(stream, command);
    CheckWaits();
}

Stream* Node::Find(const std::string& name)
{
    const auto found = std::find_if(mStreams.rbegin(), mStreams.rend(),
                                    [&name](const auto& entry) { return entry->GetName() == name; });
    return found == mStreams.rend() ? nullptr : found->get();
}

Stream& Node::Need(const std::string& name)
{
    Stream* stream = Find(name);
    if (stream == nullptr) throw LineError("there is no stream '" + name + "'");
    return *stream;
}

Command Node::Alter(Command command, AnswerMode mode)
{
    if (mode == AnswerMode::Short) command.value.resize(command.value.size() / 2);
    // Every answer but the one of the update service begins with an identity, and that one with an address.
    if (mode == AnswerMode::Wrong) {
        const std::size_t place = command.id == DEVICE_CHECK_RESULTS ? 4 : 3;
        if (place < command.value.size()) command.value[place] ^= 1;
    }
    return command;
}

void Node::Answer(Stream& stream, std::uint32_t requestId, const std::vector<Command>& commands)
{
    const Order order = mOrders.count(requestId) != 0 ? mOrders[requestId] : Order();
    if (order.mode == AnswerMode::Never) return;
    Bytes bytes;
    for (const Command& command : commands) {
        const Bytes item = ToItem(Alter(command, order.mode));
        bytes.insert(bytes.end(), item.begin(), item.end());
    }
    if (order.mode == AnswerMode::Garbage) bytes.assign(64, 0xFF);
    if (order.mode != AnswerMode::Late) return stream.SendBytes(std::move(bytes));
    const auto timer = std::make_shared<boost::asio::steady_timer>(mService, order.delay);
    timer->async_wait([timer, bytes, weak = stream.weak_from_this()](const error_code&) {
        if (const auto alive = weak.lock()) alive->SendBytes(bytes);
    });
}

void Node::SendDatagram(std::uint16_t port, const Bytes& bytes)
{
    error_code error;
    if (!mDatagrams.is_open()) {
        mDatagrams.open(udp::v4(), error);
        mDatagrams.bind(udp::endpoint(boost::asio::ip::address_v4(mPlace.own), 0), error);
    }
    const udp::endpoint target(boost::asio::ip::address_v4(mPlace.module), port);
    mDatagrams.send_to(boost::asio::buffer(bytes), target, 0, error);
    if (error) throw LineError(error.message());
}

void Node::WaitFor(std::function<bool(std::string&)> done, std::uint32_t milliseconds, const Reply& reply)
{
    std::string text;
    if (done(text)) return reply(text);
    mWaits.push_back({std::move(done), reply, boost::asio::steady_timer(mService)});
    const auto wait = std::prev(mWaits.end());
    wait->timer.expires_after(std::chrono::milliseconds(milliseconds));
    wait->timer.async_wait([this, wait](const error_code& error) {
        if (error) return;
        const Reply answer = wait->reply;
        mWaits.erase(wait);
        answer("timeout");
    });
}

void Node::CheckWaits()
{
    for (auto wait = mWaits.begin(); wait != mWaits.end();) {
        std::string text;
        // A wait whose timer has fired, but not yet run, ends as a timeout.
        if (!wait->done(text) || wait->timer.cancel() == 0) {
            ++wait;
            continue;
        }
        const Reply reply = wait->reply;
        wait = mWaits.erase(wait);
        reply(text);
    }
}

} // namespace peers
