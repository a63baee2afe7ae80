#pragma once

#include "OrbModule/Inc/LinkManager/LinkManager.h"

#include <algorithm>
#include <boost/asio/io_service.hpp>
#include <chrono>
#include <functional>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

/// The signals of a LinkManager as lines of text, in order, and the running of the main service while a test waits.
class LinkEvents
{
public:
    LinkEvents(boost::asio::io_service& service, LinkManager& manager) : mService(service)
    {
        manager.DeviceChanged.connect([this](UINT8GIGEPORT port, std::uint32_t localIp, UINT8GIGEPORT remotePort,
                                             std::uint32_t remoteIp, Hid hid, LinkManager::LinkType type) {
            std::ostringstream line;
            line << "device " << LinkPortText(port) << AddressText(localIp) << " " << LinkPortText(remotePort)
                 << AddressText(remoteIp) << " " << hid << type;
            Add(line.str());
        });
        manager.IoInternalsChanged.connect([this](Hid hid, std::uint32_t variant) {
            std::ostringstream line;
            line << "internals " << hid << std::hex << variant;
            Add(line.str());
        });
        manager.HeartbeatReceived.connect([this](UINT8GIGEPORT) { ++mHeartbeats; });
        manager.MasterHidChanged.connect([this](Hid hid) {
            std::ostringstream line;
            line << "master " << hid;
            Add(line.str());
        });
    }

    /// Runs the main service until the condition holds; false if it does not within the time.
    bool RunUntil(const std::function<bool()>& condition, std::chrono::seconds patience = std::chrono::seconds(10))
    {
        const auto end = std::chrono::steady_clock::now() + patience;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) return false;
            mService.restart();
            mService.run_one_for(std::chrono::milliseconds(10));
        }
        return true;
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
        std::vector<std::string> lines;
        const std::lock_guard<std::mutex> lock(mMutex);
        lines.swap(mLines);
        return lines;
    }
    int Heartbeats() const { return mHeartbeats; }

private:
    void Add(const std::string& line)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines.push_back(line);
    }

    boost::asio::io_service& mService;
    /// A new master can be told on a link's thread.
    std::mutex mMutex;
    std::vector<std::string> mLines;
    int mHeartbeats = 0;
};
