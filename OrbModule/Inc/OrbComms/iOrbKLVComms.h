#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstdint>

class DeskCommand;
class OrbKLVStream;

/// How the rest of the module sends commands and opens or closes streams, without ever meeting a socket.
///
/// Any thread may call Send..., Connect and Disconnect. Ports are Routing::PortsEnum, addresses are in host order.
/// A send answers true when the bytes were handed to the socket layer, and no more; nothing is queued for a
/// stream that does not exist.
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
    /// Closes the local, master and slave stream of a port; the update stream is not touched.
    virtual void Disconnect(UINT8GIGEPORT port) = 0;
    /// True while that stream stands in the directory and is being shut down by this side.
    /// @param exists whether the directory has such a stream.
    virtual bool DisconnectPending(UINT8GIGEPORT port, StreamType type, bool& exists) = 0;
    virtual void Disconnect(std::uint32_t address, StreamType type) = 0;

    virtual bool SendMaster(UINT8GIGEPORT port, const DeskCommand& command)
    {
        return SendCmd(port, command, MASTER_LINK, 0);
    }
    virtual bool SendSlave(const DeskCommand& command, std::uint32_t address)
    {
        return SendCmd(UNKNOWN_GIGE_PORT, command, SLAVE_LINK, address);
    }
    virtual bool SendLocal(const DeskCommand& command, UINT8GIGEPORT port)
    {
        return SendCmd(port, command, LOCAL_LINK, 0);
    }
    virtual bool SendUpdate(const DeskCommand& command) { return SendCmd(0, command, UPDATE_LINK, 0); }
    /// Sends on the stream of a port and type; a SLAVE_LINK is found by its remote address instead.
    virtual bool SendCmd(UINT8GIGEPORT port, const DeskCommand& command, StreamType type, std::uint32_t address) = 0;

    /// For the streams themselves, on the socket thread.
    virtual void AddKLVStream(OrbKLVStream& stream) = 0;
    virtual void RemoveKLVStream(OrbKLVStream& stream) = 0;

    /// The kernel's address of a port's interface, host order; 0 if it has none.
    virtual std::uint32_t GetPortAddress(UINT8GIGEPORT port) = 0;

    /// Connect for a peer that is no neighbour of the module and is known by the report of another alone. Such reports
    /// can come without end, so what is pending for them is bounded.
    virtual void ConnectReported(std::uint32_t address, UINT8GIGEPORT port, std::uint16_t tcpPort)
    {
        Connect(address, port, tcpPort);
    }
};
