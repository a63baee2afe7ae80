#pragma once

#include "Tests/Support/LoopbackPeer.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <gmock/gmock.h>

#include <chrono>

constexpr std::chrono::seconds Deadline{20};

/// A loopback port that is not in use.
inline boost::asio::ip::tcp::endpoint AnyLoopbackPort()
{
    return {boost::asio::ip::address_v4::loopback(), 0};
}

/// A shell on loopback, run by the test until it is started.
class ShellTest : public testing::Test
{
protected:
    ~ShellTest() override { mShell.Stop(); }

    static LoopbackPeer Connect(cmd::CommandLine& shell)
    {
        return LoopbackPeer::ConnectTo(shell.GetServer().GetEndpoint().port());
    }
    LoopbackPeer Connect() { return Connect(mShell); }
    /// Runs the service on this thread until the shell has taken up its next client.
    void WaitForConnection(cmd::CommandLine& shell)
    {
        bool opened = false;
        const boost::signals2::scoped_connection connection =
            shell.GetServer().ConnectionOpened.connect([&](const auto&) { opened = true; });
        while (!opened)
            ASSERT_NE(mService.run_one_for(Deadline), 0u);
    }
    static void SkipGreeting(const LoopbackPeer& client) { client.ReceiveThrough("more about 'cmd'.\n"); }
    /// The answer of one line to a command.
    static std::string Ask(const LoopbackPeer& client, const std::string& command)
    {
        client.Send(command + "\n");
        return client.ReceiveThrough("\n");
    }

    boost::asio::io_service mService;
    cmd::CommandLine mShell{mService, AnyLoopbackPort(), "OrbModule"};
};
