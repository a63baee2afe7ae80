#pragma once

#include "Common/KLV/Commands/NotificationCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"
#include "OrbModule/Inc/OrbComms/iOrbKLVComms.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

/// The comms as the link layer sees them: keeps what is sent as text, in order, from any thread.
class LinkComms : public iOrbKLVComms
{
public:
    /// What the closing stream test gives.
    std::atomic<bool> mStreamExists{false};
    std::atomic<bool> mStreamClosing{false};
    /// Called in each send, on its thread.
    std::function<void(const std::string& sent)> mOnSend;

    /// "notification 0", "restart 0x1230100", each with the port that it went to.
    std::vector<std::string> Sent() const
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mSent;
    }

    void Connect(std::uint32_t, UINT8GIGEPORT, std::uint16_t) override {}
    void Disconnect(UINT8GIGEPORT) override {}
    bool DisconnectPending(UINT8GIGEPORT port, StreamType type, bool& exists) override
    {
        exists = mStreamExists && type == LOCAL_LINK && (port == 1 || port == 2);
        return exists && mStreamClosing;
    }
    void Disconnect(std::uint32_t, StreamType) override {}
    bool SendCmd(UINT8GIGEPORT port, const DeskCommand& command, StreamType type, std::uint32_t) override
    {
        std::ostringstream text;
        if (const auto* notification = dynamic_cast<const SornMasterRouterNotification::Command*>(&command)) {
            text << "notification " << static_cast<int>(notification->GetNotification());
        } else if (const auto* restart = dynamic_cast<const RestartMCSLinkCmd*>(&command)) {
            text << "restart " << std::showbase << std::hex << std::uint32_t{restart->GetHid()} << std::dec;
        } else {
            text << "unexpected";
        }
        text << " to " << PortText(port) << type;
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mSent.push_back(text.str());
        }
        if (mOnSend) mOnSend(text.str());
        return true;
    }
    void AddKLVStream(OrbKLVStream&) override {}
    void RemoveKLVStream(OrbKLVStream&) override {}
    std::uint32_t GetPortAddress(UINT8GIGEPORT) override { return 0; }

private:
    mutable std::mutex mMutex;
    std::vector<std::string> mSent;
};
