#pragma once

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// The end of the socket that systemd holds, and the environment that it gives to a service.
class Supervisor
{
public:
    Supervisor()
    {
        sockaddr_un address{AF_UNIX, {}};
        mPath.copy(address.sun_path, sizeof address.sun_path - 1);
        unlink(mPath.c_str());
        EXPECT_EQ(bind(mSocket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        setenv("NOTIFY_SOCKET", mPath.c_str(), 1);
    }
    ~Supervisor()
    {
        close(mSocket);
        unlink(mPath.c_str());
        for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
            unsetenv(name);
    }
    Supervisor(const Supervisor&) = delete;

    /// From this process, or from whichever has the environment.
    void AskForWatchdog(int milliseconds, pid_t process = 0)
    {
        setenv("WATCHDOG_USEC", std::to_string(milliseconds * 1000).c_str(), 1);
        if (process != 0) setenv("WATCHDOG_PID", std::to_string(process).c_str(), 1);
    }
    /// The next message, or nothing if none comes in that time.
    std::string Receive(int patienceMs = 10000)
    {
        pollfd waiting{mSocket, POLLIN, 0};
        if (poll(&waiting, 1, patienceMs) != 1) return {};
        std::string text(256, '\0');
        text.resize(static_cast<std::size_t>(std::max<ssize_t>(recv(mSocket, &text[0], text.size(), 0), 0)));
        return text;
    }
    /// The first that differs; nothing if none comes.
    std::string ReceiveOtherThan(const std::string& usual)
    {
        std::string text = Receive();
        while (text == usual)
            text = Receive();
        return text;
    }

private:
    const std::string mPath = testing::TempDir() + "/Supervisor." + std::to_string(getpid());
    const int mSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};
