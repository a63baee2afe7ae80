#include "Simulation/Fpga/ControlChannel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace simulation {

namespace {

constexpr std::size_t MaximumLine = 4096;
constexpr std::size_t MaximumOutput = 256 * 1024;
constexpr std::size_t MaximumClients = 64;
constexpr const char* EndOfAnswer = ".\n";

} // namespace

ControlChannel::Client::~Client()
{
    ::close(fd);
}

ControlChannel::ControlChannel(SimulatedFpga& board, const std::string& path) : mBoard(board), mPath(path)
{
    try {
        Listen();
    } catch (...) {
        Close();
        throw;
    }
    mBoard.SetActivationListener([this] { Wake(); });
    mThread = std::thread([this] { Run(); });
}

ControlChannel::~ControlChannel()
{
    mBoard.SetActivationListener(nullptr);
    mRunning = false;
    Wake();
    mThread.join();
    mClients.clear();
    Close();
    ::unlink(mPath.c_str());
}

void ControlChannel::Listen()
{
    const auto fail = [this](const char* what) {
        throw std::system_error(errno, std::generic_category(), std::string(what) + " of control channel " + mPath);
    };
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (mPath.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        fail("path");
    }
    std::memcpy(address.sun_path, mPath.c_str(), mPath.size() + 1);

    mWake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (mWake == -1) fail("eventfd");
    mListener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (mListener == -1) fail("socket");
    struct stat status;
    if (::lstat(mPath.c_str(), &status) == 0 && S_ISSOCK(status.st_mode)) ::unlink(mPath.c_str());
    if (::bind(mListener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) fail("bind");
    if (::listen(mListener, 16) != 0) fail("listen");
}

void ControlChannel::Close()
{
    for (int* const fd : {&mListener, &mWake}) {
        if (*fd != -1) ::close(*fd);
        *fd = -1;
    }
}

void ControlChannel::Wake() const
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(mWake, &one, sizeof one);
}

void ControlChannel::Run()
{
    while (mRunning) {
        std::vector<pollfd> polled;
        polled.push_back({mWake, POLLIN, 0});
        polled.push_back({mListener, static_cast<short>(mClients.size() < MaximumClients ? POLLIN : 0), 0});
        for (const Client& client : mClients) {
            short events = 0;
            if (!client.waiting && HasRoom(client)) events |= POLLIN;
            if (!client.output.empty()) events |= POLLOUT;
            polled.push_back({client.fd, events, 0});
        }
        if (::poll(polled.data(), polled.size(), PollTimeout()) < 0 && errno != EINTR) return;

        std::uint64_t wakes = 0;
        [[maybe_unused]] const ssize_t taken = ::read(mWake, &wakes, sizeof wakes);
        std::size_t i = 2;
        for (Client& client : mClients) {
            const short events = polled[i++].revents;
            if (events & (POLLERR | POLLNVAL)) client.gone = true;
            // A client that has closed its side may still have sent its last commands.
            if ((events & POLLHUP) && !(events & POLLIN)) client.gone = true;
            if (events & POLLIN) Receive(client);
            if (!client.gone) {
                FinishWait(client);
                do {
                    Serve(client);
                    Send(client);
                } while (HasCommand(client));
            }
        }
        mClients.remove_if([](const Client& client) { return client.gone; });
        if (polled[1].revents & POLLIN) Accept();
    }
}

int ControlChannel::PollTimeout() const
{
    Clock::time_point first = Clock::time_point::max();
    for (const Client& client : mClients)
        if (client.waiting) first = std::min(first, client.waiting->deadline);
    if (first == Clock::time_point::max()) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(first - Clock::now()).count();
    return static_cast<int>(std::clamp<decltype(left)>(left, 0, std::numeric_limits<int>::max()));
}

void ControlChannel::Accept()
{
    const int fd = ::accept4(mListener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd != -1) mClients.emplace_back(fd);
}

void ControlChannel::Receive(Client& client) const
{
    char bytes[MaximumLine];
    const ssize_t length = ::recv(client.fd, bytes, sizeof bytes, 0);
    if (length > 0)
        client.input.append(bytes, static_cast<std::size_t>(length));
    else if (length == 0 || (errno != EAGAIN && errno != EINTR))
        client.gone = true;
}

bool ControlChannel::HasRoom(const Client& client) const
{
    return client.output.size() < MaximumOutput;
}

bool ControlChannel::HasCommand(const Client& client) const
{
    return !client.gone && !client.waiting && client.output.empty() && client.input.find('\n') != std::string::npos;
}

void ControlChannel::Serve(Client& client)
{
    while (!client.waiting && HasRoom(client)) {
        const std::size_t end = client.input.find('\n');
        if (end == std::string::npos) {
            if (client.input.size() > MaximumLine) client.gone = true;
            return;
        }
        const ControlAnswer answer = RunControlCommand(mBoard, client.input.substr(0, end));
        client.input.erase(0, end + 1);
        if (answer.wait) {
            client.waiting = Waiting{answer.wait->n, Clock::now() + answer.wait->timeout};
            FinishWait(client);
        } else {
            client.output += answer.text + EndOfAnswer;
        }
    }
}

void ControlChannel::FinishWait(Client& client) const
{
    if (!client.waiting) return;
    const std::uint64_t syncs = mBoard.GetSyncs();
    if (syncs >= client.waiting->n)
        client.output += std::to_string(syncs) + "\n" + EndOfAnswer;
    else if (Clock::now() >= client.waiting->deadline)
        client.output += std::string("timeout\n") + EndOfAnswer;
    else
        return;
    client.waiting.reset();
}

void ControlChannel::Send(Client& client) const
{
    while (!client.output.empty() && !client.gone) {
        const ssize_t length = ::send(client.fd, client.output.data(), client.output.size(), MSG_NOSIGNAL);
        if (length >= 0)
            client.output.erase(0, static_cast<std::size_t>(length));
        else if (errno == EAGAIN)
            return;
        else if (errno != EINTR)
            client.gone = true;
    }
}

} // namespace simulation
