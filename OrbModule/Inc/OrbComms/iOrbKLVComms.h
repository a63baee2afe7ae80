#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>

class DeskCommand;

/// Which stream is meant: that of a type on a port, or that of a type to a remote address.
struct StreamName
{
    static StreamName OnPort(StreamType type, UINT8GIGEPORT port) { return {type, port, 0, false}; }
    static StreamName At(StreamType type, std::uint32_t address) { return {type, UNKNOWN_GIGE_PORT, address, true}; }

    StreamType type;
    /// A Routing::PortsEnum.
    UINT8GIGEPORT port;
    /// Host order.
    std::uint32_t address;
    bool isByAddress;
};

/// What has become of a stream. One that this side shuts down is Closing for as long as it is in the directory.
enum class StreamState : std::uint8_t { None, Open, Closing };

/// How the rest of the module sends commands and opens or closes streams, without ever meeting a socket.
///
/// Any thread may call all of it. Ports are Routing::PortsEnum, addresses are in host order.
class iOrbKLVComms
{
public:
    using StreamType = ::StreamType;
    static constexpr StreamType UNKNOWN_STREAM = StreamType::UNKNOWN_STREAM;
    static constexpr StreamType LOCAL_LINK = StreamType::LOCAL_LINK;
    static constexpr StreamType MASTER_LINK = StreamType::MASTER_LINK;
    static constexpr StreamType SLAVE_LINK = StreamType::SLAVE_LINK;
    static constexpr StreamType UPDATE_LINK = StreamType::UPDATE_LINK;

    virtual ~iOrbKLVComms() = default;

    /// Opens a stream that tries again until its peer appears. It belongs to the socket handler.
    virtual void Connect(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort) = 0;
    /// Connect for a peer that is no neighbour of the module and is known by the report of another alone. Such reports
    /// can come without end, so what is pending for them is bounded.
    virtual void ConnectReported(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort)
    {
        Connect(address, port, tcpPort);
    }
    /// Closes the local, master and slave stream of a port; the update stream is not touched.
    virtual void Disconnect(UINT8GIGEPORT port) = 0;
    virtual void Disconnect(const StreamName& stream) = 0;
    virtual StreamState GetState(const StreamName& stream) = 0;
    /// True if the socket layer has taken the bytes, which may not be sent yet. Nothing is queued for a missing stream.
    virtual bool Send(const StreamName& stream, const DeskCommand& command) = 0;

    // The forms that callers use; each names its parts in a different order.

    void Disconnect(std::uint32_t address, StreamType type) { Disconnect(StreamName::At(type, address)); }
    /// GetState in the form of older callers, of which the module has none left. @param exists whether there is such a
    /// stream. @return true while this side is shutting it down.
    bool DisconnectPending(UINT8GIGEPORT port, StreamType type, bool& exists)
    {
        const StreamState state = GetState(StreamName::OnPort(type, port));
        exists = state != StreamState::None;
        return state == StreamState::Closing;
    }
    bool SendMaster(UINT8GIGEPORT port, const DeskCommand& command)
    {
        return Send(StreamName::OnPort(MASTER_LINK, port), command);
    }
    bool SendSlave(const DeskCommand& command, std::uint32_t address)
    {
        return Send(StreamName::At(SLAVE_LINK, address), command);
    }
    bool SendLocal(const DeskCommand& command, UINT8GIGEPORT port)
    {
        return Send(StreamName::OnPort(LOCAL_LINK, port), command);
    }
    bool SendToOrb(const DeskCommand& command) { return SendLocal(command, Routing::ORB_PORT); }
    bool SendUpdate(const DeskCommand& command)
    {
        return Send(StreamName::OnPort(UPDATE_LINK, Routing::ORB_PORT), command);
    }
    /// A slave link is found by its address, any other stream by its port.
    bool SendCmd(UINT8GIGEPORT port, const DeskCommand& command, StreamType type, std::uint32_t address)
    {
        return Send({type, port, address, type == SLAVE_LINK}, command);
    }
};
