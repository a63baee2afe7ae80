#include "OrbModule/Inc/OrbComms/OrbKLVStream.h"

#include "Audit/Audit.h"
#include "Common/KLV/KLVReadSet.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVSocketHandler.h"

OrbKLVStream::OrbKLVStream(OrbKLVSocketHandler& handler) : KLVTCPStream(handler), mHandler(handler) {}

void OrbKLVStream::OnOptions(int fd)
{
    KLVTCPStream::OnOptions(fd);
    if (mTargetPort != 0) SetSoLinger(fd, true, 0);
}

void OrbKLVStream::StreamUp(const char* event)
{
    AUDIT_STREAM(RouterConnectionDebug, "OrbKLVStream::" << event << ": " << AddressText(GetRemoteIp()) << "\n");
    KLVTCPStream::StreamUp(event);
    mHandler.GetComms().AddKLVStream(*this);
}

void OrbKLVStream::OnDisconnect()
{
    AUDIT_STREAM(RouterConnectionDebug, "OrbKLVStream::OnDisconnect: " << AddressText(GetRemoteIp())
                                                                       << " Shutdownlocally "
                                                                       << FlagText(WasShutdownLocally()) << "\n");
    KLVTCPStream::OnDisconnect();
    mHandler.GetComms().RemoveKLVStream(*this);
    if (WasShutdownLocally()) return;
    SetFlushBeforeClose(false);
    ShutdownStreamViaHandler();
}

void OrbKLVStream::OnDelete()
{
    AUDIT_STREAM(RouterConnectionDebug, "OrbKLVStream::OnDelete: " << AddressText(GetRemoteIp()) << "\n");
    KLVTCPStream::OnDelete();
    mHandler.GetComms().RemoveKLVStream(*this);
}

bool OrbKLVStream::HandleKey(std::uint32_t keyType, DataStream* stream)
{
    if (keyType != Klv::COMMAND_KEY_TYPE) {
        AuditAssertFailed(__FILE__, __LINE__, "false",
                          "Unknown KLV Keytype received: " + std::to_string(keyType) + "\n");
        return false;
    }
    bool bad{};
    {
        KLVCommandReadSet set(stream ? *stream : *this);
        mHandler.GetProcessor().Dispatch(set, mPort, mStreamType);
        bad = set.IsBad();
    }
    if (bad) CloseBroken("a command does not fit its item");
    return true;
}
