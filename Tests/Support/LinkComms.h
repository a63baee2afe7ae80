#pragma once

#include "Common/KLV/Commands/NotificationCommands.h"
#include "Common/KLV/Commands/RouterCommands.h"
#include "Tests/Support/SendOnlyComms.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

/// The comms as the link layer sees them: keeps what is sent as text, in order, from any thread.
class LinkComms : public SendOnlyComms
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

    StreamState GetState(const StreamName& stream) override
    {
        if (!mStreamExists || stream.type != LOCAL_LINK || stream.port == 0 || stream.port > 2)
            return StreamState::None;
        return mStreamClosing ? StreamState::Closing : StreamState::Open;
    }
    bool Send(const StreamName& stream, const DeskCommand& command) override
    {
        std::ostringstream text;
        if (const auto* notification = dynamic_cast<const SornMasterRouterNotification::Command*>(&command)) {
            text << "notification " << static_cast<int>(notification->GetNotification());
        } else if (const auto* restart = dynamic_cast<const RestartMCSLinkCmd*>(&command)) {
            text << "restart " << std::showbase << std::hex << std::uint32_t{restart->GetHid()} << std::dec;
        } else {
            text << "unexpected";
        }
        text << " to " << PortText(stream.port) << stream.type;
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mSent.push_back(text.str());
        }
        if (mOnSend) mOnSend(text.str());
        return true;
    }

private:
    mutable std::mutex mMutex;
    std::vector<std::string> mSent;
};
