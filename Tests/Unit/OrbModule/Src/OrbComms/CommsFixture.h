#pragma once

#include "MiscSource/GlobalConstants.h"
#include "OrbModule/Inc/OrbComms/OrbCommandProcessor.h"
#include "OrbModule/Inc/OrbComms/OrbKLVComms.h"
#include "OrbModule/Inc/OrbComms/OrbSimpleStreamContainer.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/LoopbackPeer.h"

#include <gtest/gtest.h>

#include <boost/asio/io_service.hpp>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

/// The comms on loopback, with the test as their main thread.
class CommsTest : public testing::Test
{
protected:
    using StreamType = ::StreamType;
    static constexpr std::uint32_t Loopback = 0x7F000001;
    static constexpr const char* NoInterface = "none";

    CommsTest()
    {
        mPorts.adjacentRouter = mPorts.masterRouter = 0;
        mPorts.updateService = 1;
        mPorts.interfaces = {NoInterface, NoInterface, NoInterface};
    }

    void Start()
    {
        mComms = std::make_unique<OrbKLVComms>(mService, mProcessor, mStreams, mPorts);
        mComms->ConnectKLVStreamChanged([this](UINT8GIGEPORT port, StreamType type, std::uint32_t address, bool valid) {
            std::ostringstream line;
            line << unsigned{port} << " " << type << AddressText(address) << " " << FlagText(valid);
            mChanges.push_back(line.str());
        });
    }
    /// Runs the main service until it is so; false if that takes 20 s.
    bool RunUntil(const std::function<bool()>& done)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (!done()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            mService.restart();
            mService.run_one_for(std::chrono::milliseconds(20));
        }
        return true;
    }
    bool WaitForChanges(std::size_t count)
    {
        return RunUntil([&] { return mChanges.size() >= count; });
    }
    LoopbackPeer ConnectAdjacent(const std::string& source = "127.0.0.1")
    {
        return LoopbackPeer::ConnectTo(mComms->GetPorts().adjacentRouter, "127.0.0.1", source);
    }

    LogRecorder mLog{DebugFeature::CommsDebug, DebugFeature::CmdDebug, DebugFeature::RouterConnectionDebug};
    boost::asio::io_service mService;
    OrbCommandProcessor mProcessor{mService};
    OrbSimpleStreamContainer mStreams;
    OrbKLVComms::Ports mPorts;
    std::unique_ptr<OrbKLVComms> mComms;
    /// "port TYPE address valid"
    std::vector<std::string> mChanges;
};
