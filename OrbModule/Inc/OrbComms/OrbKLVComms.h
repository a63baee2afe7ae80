#pragma once

#include "MiscSource/NetworkPorts.h"
#include "OrbModule/Inc/OrbComms/OrbKLVSocketHandler.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/iStreamContainer.h"
#include "OrbModule/Inc/OrbComms/iStreamRegistry.h"
#include "Sockets/HandlerMutex.h"
#include "Sockets/ListenSocket.h"
#include "Sockets/StdLog.h"

#include <boost/asio/io_service.hpp>
#include <boost/signals2/signal.hpp>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

/// Owns all KLV streams of the module: listens on the two router ports, opens streams on request, keeps a directory of
/// those that are connected, and sends commands on them. One socket thread runs all of it.
///
/// mMutex guards the handler, its sockets and the directory. The socket thread holds it during a pass, but not while it
/// waits; every operation that others call takes it. It is taken after LinkManager::mMutex and before
/// OrbCommandProcessor::mLock. What reaches the main service from the socket thread is posted, never called.
class OrbKLVComms : public iOrbKLVComms, public iStreamRegistry
{
public:
    /// The TCP ports that decide the type of a stream, and the interfaces that decide its port. A test may have others;
    /// a TCP port of 0 listens on any.
    struct Ports
    {
        /// By Routing::PortsEnum.
        std::array<std::string, Routing::PORT_COUNT> interfaces = {"eth0", "k2link0", "k2link1"};
        std::uint16_t adjacentRouter = NetworkPorts::LOCAL_STREAM;
        std::uint16_t masterRouter = NetworkPorts::ROUTER_STREAM;
        std::uint16_t updateService = NetworkPorts::UPDATE_SERVICE;
    };
    using StreamSignal =
        boost::signals2::signal<void(UINT8GIGEPORT port, StreamType type, std::uint32_t address, bool valid)>;

    /// Starts the socket thread. A listener that cannot bind is logged, and the module runs on without it. Service,
    /// processor and container outlive this object.
    OrbKLVComms(boost::asio::io_service& service, OrbCommandProcessor& processor, iStreamContainer& streams);
    OrbKLVComms(boost::asio::io_service& service, OrbCommandProcessor& processor, iStreamContainer& streams,
                const Ports& ports);
    ~OrbKLVComms() override;

    void Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) override
    {
        Open(address, port, tcpPort, false);
    }
    void ConnectReported(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) override
    {
        Open(address, port, tcpPort, true);
    }
    using iOrbKLVComms::Disconnect;
    void Disconnect(UINT8GIGEPORT port) override;
    void Disconnect(const StreamName& name) override;
    StreamState GetState(const StreamName& name) override;
    bool Send(const StreamName& name, const DeskCommand& command) override;
    void AddKLVStream(OrbKLVStream& stream) override;
    void RemoveKLVStream(OrbKLVStream& stream) override;
    /// The kernel's address of a port's interface, host order; 0 if it has none.
    std::uint32_t GetPortAddress(UINT8GIGEPORT port) const;

    /// A stream is up (valid) or has ended; the end can be reported twice. Fires on the main service.
    boost::signals2::connection ConnectKLVStreamChanged(const StreamSignal::slot_type& slot)
    {
        return KLVStreamChanged->connect(slot);
    }
    /// With the ports that are really listened on.
    const Ports& GetPorts() const { return mPorts; }

private:
    /// @return the port that it listens on, nothing if that one is taken.
    std::optional<std::uint16_t> Listen(std::uint16_t port, const char* name);
    void Run();
    void Open(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort, bool isReported);
    bool MakeRoom(UINT8GIGEPORT port, bool isReported);
    bool EndConnecting(const OrbKLVStream& stream);
    void TakePlaceOfEarlier(OrbKLVStream& stream);
    UINT8GIGEPORT FindPort(const OrbKLVStream& stream) const;
    StreamType FindType(const OrbKLVStream& stream) const;
    void PostStreamChanged(const OrbKLVStream& stream, bool valid);
    OrbKLVStream* Find(const StreamName& name);
    static void Shutdown(OrbKLVStream& stream);
    static std::uint32_t ReadInterfaceAddress(const std::string& name);

    boost::asio::io_service& mService;
    HandlerMutex mMutex;
    OrbKLVSocketHandler mHandler;
    StdoutLog mLog;
    std::atomic<bool> mRunning{true};
    std::thread mThread;
    std::shared_ptr<StreamSignal> KLVStreamChanged;
    iStreamContainer& mStreams;
    Ports mPorts;
    /// A stream that this side opened and that has not connected yet.
    struct Connecting
    {
        OrbKLVStream* stream;
        bool isReported;
    };
    /// The oldest first. A flapping cable asks again and again for a connection; one attempt at a time is enough.
    std::vector<Connecting> mConnecting;
    /// Streams that this side opened and that have connected.
    std::set<OrbKLVStream*> mOpened;
};
