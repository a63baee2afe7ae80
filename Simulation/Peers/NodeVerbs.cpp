#include "Simulation/Peers/Messages.h"
#include "Simulation/Peers/Node.h"

#include <boost/asio/ip/address_v4.hpp>

#include <sstream>
#include <utility>

// The verbs of the control channel that every peer has.

namespace peers {

using boost::asio::ip::tcp;
using boost::system::error_code;

namespace {

constexpr const char* CommonHelp =
    "appear | vanish | reboot MS | state | streams | quit\n"
    "received [ID] | clear | wait ID MS [COUNT] | wait-stream NAME MS | wait-no-stream NAME MS\n"
    "answer ID normal|never|wrong|short|garbage | answer ID late MS\n"
    "stall on|off | connect PORT [address=A] [source=PORT] | disconnect [NAME]\n"
    "patch [src=HID:STYLE:INDEX] [link=N] [slots=LIST] [dest=..] [orig=..] [make=0|1] [useme=0|1] [on=NAME]\n"
    "command ID[/VERSION] [u8:N] [u16:N] [u32:N] [ip:A] [str:TEXT] [list16:LIST] [list32:LIST] [on=NAME]\n"
    "raw HEX [on=NAME] | udp PORT HEX\n";

messages::Port ToPort(const std::string& text)
{
    const auto parts = Split(text, ':');
    if (parts.size() != 3) throw LineError("'" + text + "' is not HID:STYLE:INDEX");
    return {ToNumber(parts[0]), ToNumber(parts[1]), ToNumber(parts[2])};
}

Command ToPatch(const Line& line)
{
    messages::Patch patch;
    if (line.Has("src")) patch.source = ToPort(line.Named("src", std::string()));
    patch.link = line.Named("link", 255u);
    patch.slots = ToNumbers(line.Named("slots", std::string()));
    if (line.Has("dest")) patch.destination = ToPort(line.Named("dest", std::string()));
    patch.original = line.Has("orig") ? ToPort(line.Named("orig", std::string())) : patch.source;
    patch.make = line.Named("make", 1u) != 0;
    patch.useMe = line.Named("useme", 0u) != 0;
    return messages::PatchAudio(patch);
}

void AddField(Writer& writer, const std::string& word)
{
    const auto colon = word.find(':');
    const std::string kind = word.substr(0, colon);
    const std::string value = colon == std::string::npos ? std::string() : word.substr(colon + 1);
    if (kind == "u8") {
        writer.U8(ToNumber(value));
    } else if (kind == "u16") {
        writer.U16(ToNumber(value));
    } else if (kind == "u32") {
        writer.U32(ToNumber(value));
    } else if (kind == "ip") {
        writer.U32(ToAddress(value));
    } else if (kind == "str") {
        writer.Text(value);
    } else if (kind == "list16") {
        writer.List16(ToNumbers(value));
    } else if (kind == "list32") {
        writer.List32(ToNumbers(value));
    } else {
        throw LineError("'" + word + "' is no field");
    }
}

Command ToCommand(const Line& line)
{
    const auto id = Split(line.Word(0), '/');
    Writer writer(ToNumber(id.at(0)), id.size() > 1 ? ToNumber(id[1]) : 0);
    for (std::size_t i = 1; i < line.Count(); ++i)
        AddField(writer, line.Word(i));
    return writer.Take();
}

Bytes ToBytes(const Line& line, std::size_t first)
{
    std::string digits;
    for (std::size_t i = first; i < line.Count(); ++i)
        digits += line.Word(i);
    const auto bytes = FromHex(digits);
    if (!bytes) throw LineError("'" + digits + "' is no row of bytes");
    return *bytes;
}

} // namespace

void Node::Handle(const std::string& text, const Reply& reply)
{
    try {
        const Line line(text);
        std::string answer;
        if (line.GetVerb() == "wait" || line.GetVerb() == "wait-stream" || line.GetVerb() == "wait-no-stream")
            return HandleWait(line, reply);
        if (!HandleCommon(line, answer) && !OnVerb(line, answer))
            answer = "error: '" + line.GetVerb() + "' is unknown; see help";
        reply(answer);
    } catch (const std::exception& error) {
        reply(std::string("error: ") + error.what());
    }
}

bool Node::HandleCommon(const Line& line, std::string& answer)
{
    const std::string& verb = line.GetVerb();
    if (verb == "help") {
        answer = CommonHelp + GetHelp();
    } else if (verb == "appear") {
        Appear();
    } else if (verb == "vanish") {
        Vanish();
    } else if (verb == "reboot") {
        const std::uint32_t milliseconds = line.Number(0);
        Vanish();
        mReboot.expires_after(std::chrono::milliseconds(milliseconds));
        mReboot.async_wait([this](const error_code& error) {
            if (!error) Appear();
        });
    } else if (verb == "state") {
        answer = mPresent ? "present" : "absent";
    } else if (verb == "streams") {
        answer = GetStreams();
    } else if (verb == "received") {
        answer = GetReceived(line);
    } else if (verb == "clear") {
        mReceived.clear();
    } else if (verb == "answer") {
        HandleAnswer(line);
    } else if (verb == "stall") {
        mStalled = line.Flag(0);
        for (const auto& stream : mStreams)
            stream->Stall(mStalled);
    } else if (verb == "connect") {
        HandleConnect(line);
    } else if (verb == "disconnect") {
        HandleDisconnect(line);
    } else if (verb == "patch") {
        Need(line.Named("on", std::string("local"))).Send(ToPatch(line));
    } else if (verb == "command") {
        Need(line.Named("on", std::string("local"))).Send(ToCommand(line));
    } else if (verb == "raw") {
        Need(line.Named("on", std::string("local"))).SendBytes(ToBytes(line, 0));
    } else if (verb == "udp") {
        SendDatagram(static_cast<std::uint16_t>(line.Number(0)), ToBytes(line, 1));
    } else if (verb == "quit") {
        mService.stop();
    } else {
        return false;
    }
    return true;
}

void Node::HandleWait(const Line& line, const Reply& reply)
{
    if (line.GetVerb() == "wait") {
        const std::uint32_t id = line.Number(0);
        const std::uint32_t count = line.NumberOr(2, 1);
        WaitFor([this, id, count](std::string& text) { return CountOf(id, &text) >= count; }, line.Number(1), reply);
        return;
    }
    const bool wanted = line.GetVerb() == "wait-stream";
    WaitFor([this, name = line.Word(0), wanted](std::string&) { return (Find(name) != nullptr) == wanted; },
            line.Number(1), reply);
}

void Node::HandleAnswer(const Line& line)
{
    static const std::map<std::string, AnswerMode> Modes{
        {"normal", AnswerMode::Normal}, {"late", AnswerMode::Late},   {"never", AnswerMode::Never},
        {"wrong", AnswerMode::Wrong},   {"short", AnswerMode::Short}, {"garbage", AnswerMode::Garbage}};
    const auto mode = Modes.find(line.Word(1));
    if (mode == Modes.end()) throw LineError("'" + line.Word(1) + "' is no way to answer");
    Order order;
    order.mode = mode->second;
    if (order.mode == AnswerMode::Late) order.delay = std::chrono::milliseconds(line.Number(2));
    mOrders[line.Number(0)] = order;
}

void Node::HandleConnect(const Line& line)
{
    const auto port = static_cast<std::uint16_t>(line.Number(0));
    const std::uint32_t address = line.Has("address") ? ToAddress(line.Named("address", std::string())) : mPlace.module;
    const auto source = static_cast<std::uint16_t>(line.Named("source", 0u));
    tcp::socket socket(mService, tcp::v4());
    socket.set_option(tcp::socket::reuse_address(true));
    socket.set_option(ReusePort(true));
    socket.bind({boost::asio::ip::address_v4(mPlace.own), source});
    socket.connect({boost::asio::ip::address_v4(address), port});
    OnStream(Adopt(std::move(socket), source == mPlace.updatePort ? source : port));
}

void Node::HandleDisconnect(const Line& line)
{
    // Streams that the peer keeps open come back by themselves.
    const auto streams = mStreams;
    for (const auto& stream : streams) {
        if (line.Count() != 0 && stream->GetName() != line.Word(0)) continue;
        stream->Close(true);
        Ended(*stream);
    }
}

std::string Node::TextOf(const Entry& entry)
{
    return std::to_string(entry.number) + " " + entry.stream + " " + std::to_string(entry.command.id) + " " +
           ToHex(ToItem(entry.command));
}

std::uint32_t Node::CountOf(std::uint32_t id, std::string* last) const
{
    std::uint32_t count = 0;
    for (const Entry& entry : mReceived) {
        if (entry.command.id != id) continue;
        ++count;
        if (last != nullptr) *last = TextOf(entry);
    }
    return count;
}

std::string Node::GetReceived(const Line& line) const
{
    std::string text;
    for (const Entry& entry : mReceived)
        if (line.Count() == 0 || entry.command.id == line.Number(0)) text += TextOf(entry) + "\n";
    return text;
}

std::string Node::GetStreams() const
{
    std::string text;
    for (const auto& stream : mStreams)
        text += stream->GetText() + "\n";
    return text;
}

} // namespace peers
