#include "Simulation/Peers/Kinds.h"

#include <boost/asio/ip/address_v4.hpp>

#include <algorithm>

// The peers on the internal network of the module's unit.

namespace peers {

using boost::asio::ip::udp;

namespace {

constexpr std::uint16_t ModuleHeartbeatPort = 49157;

} // namespace

OrbRouter::OrbRouter(boost::asio::io_service& service, const Place& place, std::uint32_t hid, std::uint32_t ioHid)
    : Node(service, place), mHid(hid), mIoHid(ioHid), mEar(service)
{}

void OrbRouter::OnAppear()
{
    Listen(mPlace.own, mPlace.localPort);
    mEar.Open(udp::endpoint(boost::asio::ip::address_v4(mPlace.own), ModuleHeartbeatPort), [] {});
}

void OrbRouter::OnVanish()
{
    mEar.Close();
}

Command OrbRouter::GetIoReport(std::uint32_t address) const
{
    return messages::RemoteIoUpdate(messages::Modular, mIoHid, address, mHid, mDescription.GetRate(),
                                    mDescription.GetRates());
}

void OrbRouter::OnCommand(Stream& stream, const Command& command)
{
    if (command.id == ROUTER_INFO_REQ) {
        Answer(stream, command.id, {messages::RouterInfo(mHid, messages::Orb, 512, 512), GetIoReport(mPlace.own)});
    } else if (command.id == IO_INFO_REQ) {
        std::vector<Command> answer = mDescription.ToCommands(mIoHid);
        // The rates of the internal I/O are in its report; this command is for a box on a link.
        answer.erase(std::remove_if(answer.begin(), answer.end(),
                                    [](const Command& part) { return part.id == IO_SAMPLE_CAPABILITIES; }),
                     answer.end());
        Answer(stream, command.id, answer);
    }
}

bool OrbRouter::OnVerb(const Line& line, std::string& answer)
{
    const std::string& verb = line.GetVerb();
    if (verb == "identity") {
        mHid = line.Number(0);
        mIoHid = line.NumberOr(1, mIoHid);
    } else if (verb == "name") {
        Need("local").Send(messages::RouterInfo(mHid, messages::Orb, 512, 512));
    } else if (verb == "io-report") {
        Need("local").Send(GetIoReport(mPlace.own));
    } else if (verb == "io-gone") {
        Need("local").Send(GetIoReport(0));
    } else if (verb == "module-heartbeat") {
        answer = mEar.GetText();
    } else {
        return mDescription.Set(line);
    }
    return true;
}

std::string OrbRouter::GetHelp() const
{
    return Description::GetHelp() + "identity HID [IO-HID] | name | io-report | io-gone | module-heartbeat\n";
}

void UpdateService::OnAppear()
{
    Listen(mPlace.own, mPlace.updatePort);
}

void UpdateService::OnCommand(Stream& stream, const Command& command)
{
    if (command.id != DEVICES_TO_CHECK) return;
    Reader reader(command);
    reader.Text();
    std::vector<Command> answers;
    for (std::uint32_t count = reader.U32(); count != 0 && !reader.Failed(); --count) {
        const std::string address = reader.Text();
        reader.Text();
        for (int byte = 0; byte < 4; ++byte)
            reader.U8();
        reader.U32();
        const auto own = mResults.find(address);
        const Result result = own == mResults.end() ? mResult : own->second;
        if (result && !reader.Failed()) answers.push_back(messages::DeviceCheckResults(address, *result));
    }
    Answer(stream, command.id, answers);
}

bool UpdateService::OnVerb(const Line& line, std::string&)
{
    const auto toResult = [](const std::string& word) { return word == "never" ? Result() : Result(ToNumber(word)); };
    if (line.GetVerb() == "result") {
        mResult = toResult(line.Word(0));
    } else if (line.GetVerb() == "result-of") {
        mResults[line.Word(0)] = toResult(line.Word(1));
    } else if (line.GetVerb() == "tell") {
        Need("update").Send(messages::DeviceCheckResults(line.Word(0), line.Number(1)));
    } else {
        return false;
    }
    return true;
}

std::string UpdateService::GetHelp() const
{
    return "result 0..4|never | result-of ADDRESS 0..4|never | tell ADDRESS RESULT\n";
}

} // namespace peers
