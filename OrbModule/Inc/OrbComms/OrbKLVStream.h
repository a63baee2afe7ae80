#pragma once

#include "KLVStreams/source/KLVTCPStream.h"
#include "MiscSource/GlobalConstants.h"

class OrbKLVSocketHandler;

/// A KLV stream of the module: it reports its coming and going to the comms and hands its commands to the command
/// processor, on the socket thread. It belongs to its socket handler, and ends with its connection.
class OrbKLVStream : public KLVTCPStream
{
public:
    explicit OrbKLVStream(OrbKLVSocketHandler& handler);

    /// A stream that this side opened resets its connection when it closes, so that nothing lingers.
    void OnOptions(int fd) override;
    using KLVTCPStream::OnDisconnect;
    void OnDisconnect() override;
    void OnDelete() override;
    bool HandleKey(std::uint32_t keyType) override { return HandleKey(keyType, nullptr); }
    /// @param stream the overflow store, or null for the stream itself.
    bool HandleKey(std::uint32_t keyType, DataStream* stream) override;

    /// A Routing::PortsEnum, 0xFF until it is known.
    UINT8GIGEPORT GetPort() const { return mPort; }
    void SetPort(UINT8GIGEPORT port) { mPort = port; }
    StreamType GetStreamType() const { return mStreamType; }
    void SetStreamType(StreamType type) { mStreamType = type; }
    /// Where a stream that this side opens leads to; the address is in host order.
    void AimAt(std::uint32_t address, std::uint16_t tcpPort)
    {
        mTargetAddress = address;
        mTargetPort = tcpPort;
    }
    bool IsAimedAt(std::uint32_t address, std::uint16_t tcpPort) const
    {
        return mTargetAddress == address && mTargetPort == tcpPort;
    }
    std::uint32_t GetTargetAddress() const { return mTargetAddress; }
    std::uint16_t GetTargetPort() const { return mTargetPort; }
    bool HasTargetOf(const OrbKLVStream& other) const
    {
        return mPort == other.mPort && IsAimedAt(other.mTargetAddress, other.mTargetPort);
    }

protected:
    void StreamUp(const char* event) override;

private:
    OrbKLVSocketHandler& mHandler;
    UINT8GIGEPORT mPort = UNKNOWN_GIGE_PORT;
    StreamType mStreamType = StreamType::UNKNOWN_STREAM;
    std::uint32_t mTargetAddress = 0;
    std::uint16_t mTargetPort = 0;
};
