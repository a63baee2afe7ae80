#pragma once

#include "OrbModule/Inc/LinkManager/LinkManager.h"
#include "Tests/Support/Await.h"

#include <algorithm>
#include <boost/asio/io_service.hpp>
#include <chrono>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

/// The signals of a LinkManager as lines of text, in order, and the running of the main service while a test waits.
class LinkEvents
{
public:
    LinkEvents(boost::asio::io_service& service, LinkManager& manager) : mService(service)
    {
        manager.DeviceChanged.connect([this](UINT8GIGEPORT port, std::uint32_t localIp, UINT8GIGEPORT remotePort,
                                             std::uint32_t remoteIp, Hid hid, LinkManager::LinkType type) {
            Add("device ", LinkPortText(port), AddressText(localIp), " ", LinkPortText(remotePort),
                AddressText(remoteIp), " ", hid, type);
        });
        manager.IoInternalsChanged.connect(
            [this](Hid hid, std::uint32_t variant) { Add("internals ", hid, std::hex, variant); });
        manager.HeartbeatReceived.connect([this](UINT8GIGEPORT) { ++mHeartbeats; });
        manager.MasterHidChanged.connect([this](Hid hid) { Add("master ", hid); });
    }

    /// Runs the main service until the condition holds; false if it does not.
    bool RunUntil(const std::function<bool()>& condition)
    {
        return Await(condition, [this] {
            mService.restart();
            mService.run_one_for(std::chrono::milliseconds(10));
        });
    }
    bool RunUntilLine(const std::string& line)
    {
        return RunUntil([&] {
            const std::lock_guard<std::mutex> lock(mMutex);
            return std::find(mLines.begin(), mLines.end(), line) != mLines.end();
        });
    }
    /// All lines so far, and a new start.
    std::vector<std::string> Take()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return std::exchange(mLines, {});
    }
    int Heartbeats() const { return mHeartbeats; }

private:
    template <class... Parts>
    void Add(const Parts&... parts)
    {
        std::ostringstream line;
        ((line << parts), ...);
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(line.str());
    }

    boost::asio::io_service& mService;
    /// A new master can be reported on a link's thread.
    std::mutex mMutex;
    std::vector<std::string> mLines;
    int mHeartbeats = 0;
};
