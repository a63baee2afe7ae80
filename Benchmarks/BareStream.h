#pragma once

#include "Benchmarks/LoadReport.h"
#include "Simulation/Stage/FileDescriptor.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

// The baselines of what goes over a stream: bare sockets on loopback.

using Bytes = std::vector<std::uint8_t>;

/// Two ends of a TCP connection on loopback, blocking.
struct BarePair
{
    stage::FileDescriptor near;
    stage::FileDescriptor far;

    BarePair()
    {
        stage::FileDescriptor listener(stage::Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const plain = reinterpret_cast<sockaddr*>(&address);
        stage::Checked(bind(listener.Get(), plain, size), "bind");
        stage::Checked(listen(listener.Get(), 1), "listen");
        stage::Checked(getsockname(listener.Get(), plain, &size), "getsockname");
        near = stage::FileDescriptor(stage::Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
        stage::Checked(connect(near.Get(), plain, size), "connect");
        far = stage::FileDescriptor(stage::Checked(accept(listener.Get(), nullptr, nullptr), "accept"));
        for (const stage::FileDescriptor* const end : {&near, &far}) {
            const int on = 1;
            stage::Checked(setsockopt(end->Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "TCP_NODELAY");
        }
    }
    static void Send(const stage::FileDescriptor& end, const Bytes& bytes)
    {
        for (std::size_t sent = 0; sent < bytes.size();) {
            sent += static_cast<std::size_t>(stage::Checked(
                static_cast<int>(send(end.Get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL)), "send"));
        }
    }
    static void Take(const stage::FileDescriptor& end, std::size_t size)
    {
        std::vector<char> block(65536);
        while (size != 0) {
            const int piece = stage::Checked(
                static_cast<int>(recv(end.Get(), block.data(), std::min(block.size(), size), 0)), "recv");
            if (piece == 0) throw std::runtime_error("the bare stream has ended");
            size -= static_cast<std::size_t>(piece);
        }
    }
};

inline Samples BareRoundTrips(const Bytes& bytes, unsigned int count)
{
    const BarePair pair;
    std::thread echo([&] {
        for (unsigned int i = 0; i < count; ++i) {
            BarePair::Take(pair.far, bytes.size());
            BarePair::Send(pair.far, bytes);
        }
    });
    Samples trips;
    for (unsigned int i = 0; i < count; ++i) {
        const double start = NowMicroseconds();
        BarePair::Send(pair.near, bytes);
        BarePair::Take(pair.near, bytes.size());
        trips.Add(NowMicroseconds() - start);
    }
    echo.join();
    return trips;
}

/// Microseconds for the bytes to arrive at a bare reader.
inline double BareTransfer(const Bytes& bytes)
{
    const BarePair pair;
    double end = 0;
    const double start = NowMicroseconds();
    std::thread reader([&] {
        BarePair::Take(pair.far, bytes.size());
        end = NowMicroseconds();
    });
    BarePair::Send(pair.near, bytes);
    reader.join();
    return end - start;
}

/// Microseconds from the first byte at a sender, past a reader and a worker, to a third thread: the path of a patch
/// through the module's threads with nothing done on it.
inline Samples BareHandOvers(const Bytes& bytes, unsigned int count)
{
    const BarePair pair;
    std::mutex mutex;
    std::condition_variable changed;
    unsigned int received = 0;
    unsigned int worked = 0;
    unsigned int ended = 0;
    double end = 0;
    const auto pass = [&](unsigned int& from, unsigned int& to) {
        for (unsigned int i = 0; i < count; ++i) {
            std::unique_lock<std::mutex> lock(mutex);
            changed.wait(lock, [&] { return from > i; });
            end = NowMicroseconds();
            ++to;
            changed.notify_all();
        }
    };
    std::thread reader([&] {
        for (unsigned int i = 0; i < count; ++i) {
            BarePair::Take(pair.far, bytes.size());
            const std::lock_guard<std::mutex> lock(mutex);
            ++received;
            changed.notify_all();
        }
    });
    std::thread worker([&] { pass(received, worked); });
    std::thread last([&] { pass(worked, ended); });
    Samples times;
    for (unsigned int i = 0; i < count; ++i) {
        const double start = NowMicroseconds();
        BarePair::Send(pair.near, bytes);
        std::unique_lock<std::mutex> lock(mutex);
        changed.wait(lock, [&] { return ended > i; });
        times.Add(end - start);
    }
    for (std::thread* const thread : {&reader, &worker, &last})
        thread->join();
    return times;
}
