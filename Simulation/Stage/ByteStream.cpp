#include "Simulation/Stage/ByteStream.h"

#include "Simulation/Stage/NetworkNamespace.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace stage {

namespace {

constexpr std::size_t QuotedLength = 2000;

} // namespace

ByteStream ByteStream::ConnectTcp(const std::string& networkNamespace, const std::string& address, std::uint16_t port)
{
    const std::string name = address + ":" + std::to_string(port);
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    if (inet_pton(AF_INET, address.c_str(), &peer.sin_addr) != 1) throw std::invalid_argument(name);

    const NamespaceScope scope(networkNamespace);
    FileDescriptor socket(Checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    // A test that cuts a message into segments means each of them to leave at once.
    const int on = 1;
    Checked(setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), "TCP_NODELAY");
    Checked(connect(socket.Get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer), "connect to " + name);
    return ByteStream(std::move(socket));
}

ByteStream ByteStream::ConnectUnix(const std::string& path)
{
    sockaddr_un peer{};
    peer.sun_family = AF_UNIX;
    if (path.size() >= sizeof peer.sun_path) throw std::invalid_argument(path + " is too long for a socket");
    std::memcpy(peer.sun_path, path.c_str(), path.size() + 1);

    FileDescriptor socket(Checked(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket"));
    Checked(connect(socket.Get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer), "connect to " + path);
    return ByteStream(std::move(socket));
}

void ByteStream::Send(const std::string& bytes)
{
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t result = send(mSocket.Get(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (result < 0 && errno == EINTR) continue;
        if (result < 0) throw std::system_error(errno, std::generic_category(), "send");
        sent += static_cast<std::size_t>(result);
    }
}

std::string ByteStream::TakeThrough(const std::string& text, Milliseconds patience)
{
    const Deadline deadline(patience);
    std::size_t searched = 0;
    for (;;) {
        const std::size_t found = mPending.find(text, searched);
        if (found != std::string::npos) {
            std::string taken = mPending.substr(0, found + text.size());
            mPending.erase(0, taken.size());
            return taken;
        }
        searched = mPending.size() < text.size() ? 0 : mPending.size() - text.size();
        if (!mSocket.WaitReadable(deadline)) Missing("'" + text + "'", false);
        if (!Receive()) Missing("'" + text + "'", true);
    }
}

std::string ByteStream::TakeBytes(std::size_t count, Milliseconds patience)
{
    const Deadline deadline(patience);
    while (mPending.size() < count) {
        if (!mSocket.WaitReadable(deadline)) Missing(std::to_string(count) + " bytes", false);
        if (!Receive()) Missing(std::to_string(count) + " bytes", true);
    }
    std::string taken = mPending.substr(0, count);
    mPending.erase(0, count);
    return taken;
}

std::string ByteStream::TakeUntilClosed(Milliseconds patience)
{
    const Deadline deadline(patience);
    do {
        if (!mSocket.WaitReadable(deadline)) Missing("the end of the connection", false);
    } while (Receive());
    return std::exchange(mPending, {});
}

bool ByteStream::Receive()
{
    std::array<char, 65536> block;
    for (;;) {
        const ssize_t result = recv(mSocket.Get(), block.data(), block.size(), 0);
        if (result > 0) mPending.append(block.data(), static_cast<std::size_t>(result));
        if (result >= 0) return result > 0;
        if (errno == ECONNRESET) return false;
        if (errno != EINTR) throw std::system_error(errno, std::generic_category(), "recv");
    }
}

void ByteStream::Missing(const std::string& what, bool closed) const
{
    const std::size_t begin = mPending.size() > QuotedLength ? mPending.size() - QuotedLength : 0;
    throw NotSeen("waited for " + what + (closed ? ", and the connection ended" : "") + "; received so far: '" +
                  mPending.substr(begin) + "'");
}

} // namespace stage
