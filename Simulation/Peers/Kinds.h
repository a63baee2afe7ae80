#pragma once

#include "Simulation/Peers/Description.h"
#include "Simulation/Peers/LinkNode.h"
#include "Simulation/Peers/Messages.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace peers {

/// A box that is plugged straight into a link: it takes the module's stream and describes itself when asked.
class Box : public LinkNode
{
public:
    Box(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid, BoxKind kind);

protected:
    void ListenForStreams() override;
    void OnCommand(Stream& stream, const Command& command) override;
    bool OnVerb(const Line& line, std::string& answer) override;
    std::string GetHelp() const override;

private:
    Description mDescription;
};

/// What a hub and a master router have in common: connected devices, which they report to the module on the local
/// stream, and descriptions that they give on the data link.
class RoutingNode : public LinkNode
{
public:
    RoutingNode(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid,
                K2Heartbeat::LinkType type);

protected:
    void OnCommand(Stream& stream, const Command& command) override;
    bool OnVerb(const Line& line, std::string& answer) override;
    std::string GetHelp() const override;
    /// Whether the module can ask for what is reported.
    virtual bool CanBeAsked() { return true; }
    /// Reports all its devices on the local stream, if there is one.
    void Report();

private:
    struct Device
    {
        std::uint32_t address;
        Description description;
    };
    struct Router
    {
        std::uint32_t type;
        std::uint32_t address;
    };

    std::vector<Command> GetReports() const;
    Command GetReport(std::uint32_t hid, const Device& device, std::uint32_t address) const;
    /// On the local stream, if there is one.
    void Tell(const Command& command);
    void Describe(Stream& stream, const Command& request);
    void AddDevice(const Line& line);
    void RemoveDevice(const Line& line);

    std::map<std::uint32_t, Device> mDevices;
    std::map<std::uint32_t, Router> mRouters;
    /// The hub's own I/O, which it describes to a bare request on the data link.
    std::optional<std::uint32_t> mOwnIo;
};

/// Takes the module's local stream, and its data link at the address of its rack's port side. It reports its devices
/// once the module has asked on the data link for the first time, or as soon as it has the local stream.
class Hub : public RoutingNode
{
public:
    Hub(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid);

protected:
    void ListenForStreams() override;
    void OnStream(Stream& stream) override;
    void OnCommand(Stream& stream, const Command& command) override;
    bool CanBeAsked() override { return Find("data") != nullptr; }
    bool OnVerb(const Line& line, std::string& answer) override;
    std::string GetHelp() const override;
    std::vector<std::uint32_t> GetFurtherAddresses() const override;

private:
    bool mReportsAtOnce = false;
};

/// Opens its streams to the module, a local one and a master one, and its beats name the master. It does not
/// wait for heartbeats, its own or the module's.
class MasterRouter : public RoutingNode
{
public:
    MasterRouter(boost::asio::io_service& service, const Place& place, const Cable& cable, std::uint32_t hid);

protected:
    void OnAppear() override;
    bool MayOpen() override;
    void OnStreamEnded() override;
    bool OnVerb(const Line& line, std::string& answer) override;
    std::string GetHelp() const override;

private:
    std::chrono::steady_clock::time_point mLastEnd;
};

/// The Orb router of the module's unit, with internal I/O, on the unit's internal network.
class OrbRouter : public Node
{
public:
    OrbRouter(boost::asio::io_service& service, const Place& place, std::uint32_t hid, std::uint32_t ioHid);

protected:
    void OnAppear() override;
    void OnVanish() override;
    void OnCommand(Stream& stream, const Command& command) override;
    bool OnVerb(const Line& line, std::string& answer) override;
    std::string GetHelp() const override;

private:
    Command GetIoReport(std::uint32_t address) const;

    std::uint32_t mHid;
    std::uint32_t mIoHid;
    Description mDescription{BoxKind::Modular};
    HeartbeatEar mEar;
};

/// Checks the software of devices: each address gets the result that was ordered for it, or the general one.
class UpdateService : public Node
{
public:
    UpdateService(boost::asio::io_service& service, const Place& place) : Node(service, place) {}

protected:
    void OnAppear() override;
    void OnCommand(Stream& stream, const Command& command) override;
    bool OnVerb(const Line& line, std::string& answer) override;
    std::string GetHelp() const override;

private:
    /// Empty for a check that is never answered.
    using Result = std::optional<std::uint32_t>;
    Result mResult = 0;
    std::map<std::string, Result> mResults;
};

} // namespace peers
