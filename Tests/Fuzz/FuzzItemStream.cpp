// The bytes of a KLV connection, in pieces of any size, up to the posted commands: as many are posted as the input
// holds whole, unless the stream has given its peer up.

#include "OrbModule/Inc/OrbComms/CommandSignals.h"
#include "OrbModule/Inc/OrbComms/OrbKLVSocketHandler.h"
#include "OrbModule/Inc/OrbComms/OrbKLVStream.h"
#include "Sockets/HandlerMutex.h"
#include "Tests/Fuzz/Require.h"
#include "Tests/Support/QuietLog.h"

#include <algorithm>
#include <set>

#include <sys/socket.h>
#include <unistd.h>

namespace {

struct Receiver : iStreamRegistry
{
    Receiver()
    {
        Klv::VisitCommands([this](auto row) {
            if constexpr (decltype(row)::IsReceived) {
                using Class = typename decltype(row)::Command;
                ids.insert(Class::ID);
                processor.Connect<Class>(
                    [this](const std::shared_ptr<Class const>&, unsigned char, StreamType) { ++received; });
            }
        });
    }

    void AddKLVStream(OrbKLVStream&) override {}
    void RemoveKLVStream(OrbKLVStream&) override {}
    /// Whole commands in the bytes, up to the first header that no stream accepts.
    std::size_t CountCommands(const std::uint8_t* data, std::size_t size) const
    {
        std::size_t count = 0;
        while (size >= 8) {
            const auto key = LoadLittleEndian<std::uint32_t>(data);
            const std::size_t length = LoadLittleEndian<std::uint32_t>(data + 4);
            if (length > ItemFramer::MaxLength || length > size - 8) break;
            if (key >> 27 == Klv::COMMAND_KEY_TYPE && ids.count(key & Klv::ID_MASK) != 0) ++count;
            data += 8 + length;
            size -= 8 + length;
        }
        return count;
    }

    boost::asio::io_service service;
    OrbCommandProcessor processor{service};
    HandlerMutex mutex;
    OrbKLVSocketHandler handler{mutex, *this, processor};
    std::set<CommandID> ids;
    std::size_t received = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QuietLog::Install();
    static Receiver receiver;
    if (size == 0) return 0;
    const std::size_t pieceSize = data[0] == 0 ? 50000 : data[0];
    ++data;
    --size;
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, pair) != 0) return 0;
    bool isGivenUp = false;
    {
        OrbKLVStream stream(receiver.handler);
        stream.Attach(pair[0]);
        stream.SetConnected();
        receiver.received = 0;
        for (std::size_t sent = 0; sent < size && !isGivenUp;) {
            const ssize_t piece = ::send(pair[1], data + sent, std::min(pieceSize, size - sent), MSG_NOSIGNAL);
            Require(piece > 0);
            sent += static_cast<std::size_t>(piece);
            stream.OnRead();
            isGivenUp = stream.CloseAndDelete();
        }
    }
    ::close(pair[1]);
    receiver.service.restart();
    receiver.service.poll();
    const std::size_t whole = receiver.CountCommands(data, size);
    Require(isGivenUp ? receiver.received <= whole : receiver.received == whole);
    return 0;
}
