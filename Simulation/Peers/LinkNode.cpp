#include "Simulation/Peers/LinkNode.h"

#include <boost/asio/ip/address_v4.hpp>

#include <cstdlib>

namespace peers {

using boost::asio::ip::udp;
using boost::system::error_code;

namespace {

constexpr std::chrono::milliseconds Period{300};
constexpr std::uint16_t OwnerPort = 60001;
constexpr std::uint16_t OtherPort = 60002;

void Run(const std::string& command)
{
    if (std::system(command.c_str()) != 0) throw LineError("'" + command + "' failed");
}

} // namespace

LinkNode::LinkNode(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid,
                   K2Heartbeat::LinkType type)
    : Node(service, place), mCable(cable), mHid(hid), mType(type), mEar(service), mTimer(service)
{}

void LinkNode::SetAddresses()
{
    const bool primary = mCable.link == 0;
    const std::uint32_t driverId = 2 * mCable.rack;
    mPlace.own = mCable.ownAddress != 0
                     ? mCable.ownAddress
                     : GetLinkRemoteAddress(mCable.moduleRack, mCable.link, driverId, mCable.port, primary);
    mPlace.module = mCable.moduleAddress != 0
                        ? mCable.moduleAddress
                        : GetLinkLocalAddress(mCable.moduleRack, mCable.link, driverId, mCable.port, primary);
    if (mCable.interface.empty()) return;
    Run("ip address flush dev " + mCable.interface);
    Run("ip address add " + AddressOf(mPlace.own) + "/24 dev " + mCable.interface);
    for (const std::uint32_t address : GetFurtherAddresses())
        Run("ip address add " + AddressOf(address) + "/32 dev " + mCable.interface);
}

void LinkNode::OpenHeartbeats()
{
    const bool moduleOwns = OwnsLinkNetwork(mCable.moduleRack, 2 * mCable.rack);
    const std::uint16_t own = mCable.ownHeartbeatPort != 0 ? mCable.ownHeartbeatPort
                              : moduleOwns                 ? OtherPort
                                                           : OwnerPort;
    const std::uint16_t module = mCable.moduleHeartbeatPort != 0 ? mCable.moduleHeartbeatPort
                                 : moduleOwns                    ? OwnerPort
                                                                 : OtherPort;
    mModule = udp::endpoint(boost::asio::ip::address_v4(mPlace.module), module);
    mEar.Open(udp::endpoint(boost::asio::ip::address_v4(mPlace.own), own), [this] { CheckWaits(); });
}

void LinkNode::OnAppear()
{
    SetAddresses();
    // The first heartbeat brings the module's connection at once.
    ListenForStreams();
    OpenHeartbeats();
    Beat();
}

void LinkNode::OnVanish()
{
    mTimer.cancel();
    mEar.Close();
}

void LinkNode::Beat()
{
    if (mBeating) {
        Bytes beat;
        for (unsigned i = 0; i < 4; ++i)
            beat.push_back(static_cast<std::uint8_t>(mHid >> (8 * i)));
        beat.insert(beat.end(), {static_cast<std::uint8_t>(mType), 0, 0, 0});
        for (unsigned i = 0; i < 4; ++i)
            beat.push_back(static_cast<std::uint8_t>(mWord >> (8 * i)));
        mEar.SendTo(mModule, beat); // the module may not have its address yet
    }
    mTimer.expires_after(Period);
    mTimer.async_wait([this](const error_code& error) {
        if (!error && IsPresent()) Beat();
    });
}

bool LinkNode::OnVerb(const Line& line, std::string& answer)
{
    const std::string& verb = line.GetVerb();
    if (verb == "internals") {
        mWord = line.Number(0);
    } else if (verb == "heartbeats") {
        mBeating = line.Flag(0);
    } else if (verb == "module-heartbeat") {
        answer = mEar.GetText();
    } else if (verb == "identity") {
        mHid = ToNumber(line.Word(0));
        if (line.Count() > 1) mType = static_cast<K2Heartbeat::LinkType>(line.Number(1) & 0xFF);
    } else if (verb == "module-rack") {
        const bool present = IsPresent();
        Vanish();
        mCable.moduleRack = line.Number(0);
        if (present) Appear();
    } else if (verb == "cable") {
        if (mCable.interface.empty()) throw LineError("this peer has no interface");
        if (line.Word(0) != "in" && line.Word(0) != "out") throw LineError("cable is in or out");
        Run("ip link set " + mCable.interface + (line.Word(0) == "in" ? " up" : " down"));
    } else if (verb == "address") {
        answer = AddressOf(mPlace.own) + " " + AddressOf(mPlace.module);
    } else {
        return false;
    }
    return true;
}

std::string LinkNode::GetHelp() const
{
    return "internals WORD | heartbeats on|off | module-heartbeat | identity HID [TYPE] | module-rack RACK\n"
           "cable in|out | address\n";
}

} // namespace peers
