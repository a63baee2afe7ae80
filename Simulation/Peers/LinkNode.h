#pragma once

#include "MiscSource/GlobalConstants.h"
#include "Simulation/Peers/HeartbeatEar.h"
#include "Simulation/Peers/Node.h"

#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>

#include <cstdint>
#include <string>

namespace peers {

/// The cable between a peer and the module: the nodes at its ends.
struct Cable
{
    std::uint32_t moduleRack = 0;
    /// The module's link index: 0 primary, 1 secondary.
    std::uint8_t link = 0;
    std::uint32_t rack = 0;
    /// The peer's own gigabit port.
    std::uint8_t port = 0;
    /// The peer's interface, whose addresses the peer sets; empty leaves all addresses as they are.
    std::string interface;
    /// For tests on loopback: the two UDP ports of the heartbeats, 0 for the network's own.
    std::uint16_t ownHeartbeatPort = 0;
    std::uint16_t moduleHeartbeatPort = 0;
    std::uint32_t ownAddress = 0;
    std::uint32_t moduleAddress = 0;
};

/// A peer at the far end of a link: it beats every 300 ms and hears the module's beats. The addresses of the link
/// follow from the racks at the two ends.
class LinkNode : public Node
{
public:
    LinkNode(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid,
             K2Heartbeat::LinkType type);

protected:
    void OnAppear() override;
    /// Once the addresses are set and before anything is sent.
    virtual void ListenForStreams() {}
    void OnVanish() override;
    bool OnVerb(const Line& line, std::string& answer) override;
    std::string GetHelp() const override;

    /// Addresses besides the one of the link, to be set before the peer appears.
    virtual std::vector<std::uint32_t> GetFurtherAddresses() const { return {}; }
    /// The word after the type in the heartbeat: an I/O device's internals, a router's master.
    void SetWord(std::uint32_t word) { mWord = word; }
    std::uint32_t GetHid() const { return mHid; }
    K2Heartbeat::LinkType GetType() const { return mType; }
    std::uint32_t GetOwnAddress() const { return mPlace.own; }
    bool HasInterface() const { return !mCable.interface.empty(); }
    /// The module's port of this link.
    UINT8GIGEPORT GetPort() const { return ToPort(LinkIndex{mCable.link}); }

private:
    void SetAddresses();
    void OpenHeartbeats();
    void Beat();

    Cable mCable;
    std::uint32_t mHid;
    K2Heartbeat::LinkType mType;
    std::uint32_t mWord = 0;
    bool mBeating = true;
    HeartbeatEar mEar;
    boost::asio::ip::udp::endpoint mModule;
    boost::asio::steady_timer mTimer;
};

} // namespace peers
