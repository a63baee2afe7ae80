#include "Benchmarks/OrbTap.h"

#include "Simulation/Peers/Messages.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/NetworkNamespace.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace stage;

namespace {

constexpr std::uint16_t OrbPort = 55000;

sockaddr_in Address(std::uint16_t port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, MasterControlAddress, &address.sin_addr);
    return address;
}

FileDescriptor MakeSocket()
{
    const NamespaceScope scope(UnitNamespace);
    return FileDescriptor(Checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
}

void SetNoDelay(int fd)
{
    const int on = 1;
    Checked(setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "TCP_NODELAY");
}

void SendAll(int fd, const peers::Bytes& bytes)
{
    for (std::size_t sent = 0; sent < bytes.size();) {
        const ssize_t size = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (size < 0 && errno == EINTR) continue;
        if (size < 0) throw std::system_error(errno, std::generic_category(), "send");
        sent += static_cast<std::size_t>(size);
    }
}

/// Appends what has come; false at the end.
bool Receive(int fd, peers::Bytes& bytes)
{
    std::array<std::uint8_t, 65536> block;
    const ssize_t size = recv(fd, block.data(), block.size(), 0);
    if (size <= 0) return false;
    bytes.insert(bytes.end(), block.begin(), block.begin() + size);
    return true;
}

} // namespace

OrbTap::OrbTap() : mListener(MakeSocket()), mStop(Checked(eventfd(0, EFD_CLOEXEC), "eventfd"))
{
    const int on = 1;
    Checked(setsockopt(mListener.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), "SO_REUSEADDR");
    const sockaddr_in address = Address(OrbPort);
    Checked(bind(mListener.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "bind the tap");
    Checked(listen(mListener.Get(), 4), "listen");
    mThread = std::thread([this] { Run(); });
}

OrbTap::~OrbTap()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(mStop.Get(), &one, sizeof one);
    mThread.join();
}

void OrbTap::Send(const peers::Bytes& bytes)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (!mModule.IsOpen()) throw std::runtime_error("the module has no stream to the Orb router");
    SendAll(mModule.Get(), bytes);
}

void OrbTap::Run()
{
    for (;;) {
        std::array<pollfd, 2> polled{{{mStop.Get(), POLLIN, 0}, {mListener.Get(), POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) return;
        if (polled[0].revents) return;
        if (!polled[1].revents) continue;
        try {
            Serve();
        } catch (const std::system_error&) {
            // The stream has broken, or the peer is not there yet: the module comes again.
        }
        const std::lock_guard<std::mutex> lock(mMutex);
        mModule.Close();
    }
}

void OrbTap::Serve()
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mModule = FileDescriptor(Checked(accept4(mListener.Get(), nullptr, nullptr, SOCK_CLOEXEC), "accept"));
        SetNoDelay(mModule.Get());
    }
    mPeer = MakeSocket();
    const sockaddr_in address = Address(PeerPort);
    Checked(connect(mPeer.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), "connect to the peer");
    SetNoDelay(mPeer.Get());

    peers::Bytes fromModule;
    for (;;) {
        std::array<pollfd, 3> polled{{{mStop.Get(), POLLIN, 0}, {mModule.Get(), POLLIN, 0}, {mPeer.Get(), POLLIN, 0}}};
        if (poll(polled.data(), polled.size(), -1) < 0 && errno != EINTR) return;
        if (polled[0].revents) return;
        if (polled[1].revents) {
            if (!Receive(mModule.Get(), fromModule)) return;
            PassFromModule(fromModule);
        }
        if (polled[2].revents) {
            peers::Bytes bytes;
            if (!Receive(mPeer.Get(), bytes)) return;
            Send(bytes);
        }
    }
}

void OrbTap::PassFromModule(peers::Bytes& pending)
{
    constexpr std::size_t HeaderSize = 8;
    const auto word = [&](std::size_t place) {
        std::uint32_t value = 0;
        for (std::size_t i = 4; i-- > 0;)
            value = value << 8 | pending[place + i];
        return value;
    };
    peers::Bytes passed;
    std::size_t begin = 0;
    while (pending.size() - begin >= HeaderSize) {
        const std::size_t size = HeaderSize + word(begin + 4);
        if (pending.size() - begin < size) break;
        const auto item = pending.begin() + static_cast<std::ptrdiff_t>(begin);
        if ((word(begin) & 0x3FFFFF) != peers::ROUTER_PATCH_AUDIO) {
            passed.insert(passed.end(), item, item + static_cast<std::ptrdiff_t>(size));
        }
        begin += size;
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(begin));
    if (!passed.empty()) SendAll(mPeer.Get(), passed);
}
