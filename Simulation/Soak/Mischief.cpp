#include "Simulation/Soak/Mischief.h"

#include "Simulation/Stage/NetworkNamespace.h"
#include "Simulation/Stage/UdpSocket.h"

#include <algorithm>
#include <sstream>
#include <thread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

using namespace stage;

namespace soak {

using std::chrono::milliseconds;

namespace {

constexpr std::uint16_t LocalStream = 55000;
constexpr std::uint16_t RouterStream = 55100;

std::string Word(std::size_t value)
{
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(value >> shift & 0xFF);
    return bytes;
}

/// A ping with a text of this length.
std::string PingItem(std::size_t textSize)
{
    return std::string("\x47\x03\x00\x28", 4) + Word(textSize + 12) + Word(textSize) + std::string(textSize, 't') +
           std::string(8, '\0');
}

/// From the module's own namespace. A busy module accepts no connection for a while, and the soak must not wait for it.
ByteStream Connect(std::uint16_t port)
{
    constexpr int PatienceMs = 1000;
    FileDescriptor socket(Checked(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), "socket"));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        pollfd ready{socket.Get(), POLLOUT, 0};
        ::poll(&ready, 1, PatienceMs);
    }
    return ByteStream(std::move(socket));
}

HeartbeatWatch::Wire WireOf(unsigned int link)
{
    return static_cast<HeartbeatWatch::Wire>(link);
}

} // namespace

Mischief::Mischief(Findings& findings, Surroundings& surroundings, HeartbeatWatch& watch, Unit& unit, unsigned int seed)
    : mFindings(findings), mSurroundings(surroundings), mWatch(watch), mUnit(unit), mRandom(seed)
{
    AddPeers();
    AddLies();
    AddSurroundings();
    AddLoad();
}

void Mischief::PlayAll()
{
    std::vector<const Trouble*> order;
    for (const Trouble& trouble : mTroubles)
        order.push_back(&trouble);
    std::shuffle(order.begin(), order.end(), mRandom);
    for (const Trouble* const trouble : order) {
        Begin(*trouble);
        Pause(200, 900);
    }
    EndThoseBefore(Clock::time_point::max());
}

void Mischief::PlayFor(std::chrono::seconds time)
{
    const auto until = Clock::now() + time;
    while (Clock::now() < until) {
        const Trouble& trouble = mTroubles[static_cast<std::size_t>(Random(0, static_cast<int>(mTroubles.size()) - 1))];
        if (!IsRunning(trouble)) Begin(trouble);
        Pause(50, 900);
    }
    EndThoseBefore(Clock::time_point::max());
}

void Mischief::Begin(const Trouble& trouble)
{
    mFindings.Tell(trouble.name);
    const milliseconds lasts(Random(100, static_cast<int>(trouble.longest.count())));
    mRunning.push_back({&trouble, trouble.begin(), Clock::now() + lasts});
}

void Mischief::EndThoseBefore(Clock::time_point time)
{
    for (auto entry = mRunning.begin(); entry != mRunning.end();) {
        if (entry->until > time) {
            ++entry;
            continue;
        }
        if (entry->end) entry->end();
        entry = mRunning.erase(entry);
    }
}

void Mischief::Pause(int from, int to)
{
    std::this_thread::sleep_for(milliseconds(Random(from, to)));
    EndThoseBefore(Clock::now());
    mUnit.Look();
}

bool Mischief::IsRunning(const Trouble& trouble) const
{
    return std::any_of(mRunning.begin(), mRunning.end(),
                       [&](const Running& running) { return running.trouble == &trouble; });
}

int Mischief::Random(int from, int to)
{
    // Not the library's distribution, whose numbers differ from one library to the next.
    return from + static_cast<int>(mRandom() % (static_cast<unsigned int>(to - from) + 1));
}

std::string Mischief::RandomHex(int bytes)
{
    std::string text;
    for (int i = 0; i < 2 * bytes; ++i)
        text += "0123456789abcdef"[Random(0, 15)];
    return text;
}

void Mischief::Add(const char* name, int longest, std::function<End()> begin)
{
    mTroubles.push_back({name, std::move(begin), milliseconds(longest)});
}

bool Mischief::TellPeer(unsigned int link, const std::string& line)
{
    if (!mUnit.IsPlugged(link)) return false;
    try {
        mUnit.GetPeer(link).Tell(line);
        return true;
    } catch (const std::runtime_error&) {
        // It may have no stream to say that on.
        return false;
    }
}

std::string Mischief::RandomPatch()
{
    const Neighbour& far = Unit::Neighbours[static_cast<std::size_t>(Random(0, 2))];
    const std::string index = std::to_string(Random(0, 7));
    const std::string orb = std::string(OrbIo) + ":";
    const std::string device = std::string(far.device) + ":";
    if (Random(0, 1) == 0) {
        return "src=" + device + "1:" + index + " link=" + std::to_string(Random(0, 2)) + " dest=" + orb +
               "2:" + std::to_string(Random(0, 15));
    }
    const int input = Random(0, 15);
    return "src=" + orb + "1:" + std::to_string(input) + " link=0 slots=" + std::to_string(input) + " dest=" + device +
           "2:" + index;
}

void Mischief::AddPeers()
{
    Add("a neighbour goes, and another comes", 6000, [this] {
        const unsigned int link = RandomLink();
        mUnit.Unplug(link);
        return [this, link] {
            // Only the same box can be on both links.
            const unsigned int other = 1 - link;
            const int last = static_cast<int>(Unit::Neighbours.size()) - 1;
            const bool same = Random(0, 3) != 0 && mUnit.IsPlugged(other);
            mUnit.Plug(link,
                       same ? mUnit.GetNeighbour(other) : Unit::Neighbours[static_cast<std::size_t>(Random(0, last))]);
        };
    });
    Add("a neighbour reboots", 1000, [this] {
        TellPeer(RandomLink(), "reboot " + std::to_string(Random(50, 3000)));
        return End();
    });
    Add("a neighbour stalls", 8000, [this] {
        const unsigned int link = RandomLink();
        TellPeer(link, "stall on");
        return [this, link] { TellPeer(link, "stall off"); };
    });
    Add("a neighbour falls silent", 5000, [this] {
        const unsigned int link = RandomLink();
        TellPeer(link, "heartbeats off");
        return [this, link] { TellPeer(link, "heartbeats on"); };
    });
    Add("a stream is reset", 1000, [this] {
        TellPeer(RandomLink(), "disconnect");
        return End();
    });
    Add("the driver tells of a flapping cable", 1000, [this] {
        const unsigned int link = RandomLink();
        if (!mUnit.IsPlugged(link)) return End();
        for (int i = Random(2, 12); i > 0; --i) {
            mUnit.PullCable(link);
            std::this_thread::sleep_for(milliseconds(Random(0, 120)));
            mUnit.PlugCable(link);
            std::this_thread::sleep_for(milliseconds(Random(0, 120)));
        }
        return End();
    });
    Add("a cable is cut", 4000, [this] {
        const unsigned int link = RandomLink();
        const std::string netns = link == 0 ? PrimaryNamespace : SecondaryNamespace;
        mWatch.Disturb(WireOf(link));
        RunLine(mFindings, "ip -n " + netns + " link set eth0 down");
        return [this, link, netns] {
            RunLine(mFindings, "ip -n " + netns + " link set eth0 up");
            // The kernel's neighbour entry may have failed meanwhile, and is tried again after a second.
            std::this_thread::sleep_for(milliseconds(1200));
            mWatch.Calm(WireOf(link));
        };
    });
    Add("the update service goes", 4000, [this] {
        mUnit.GetUpdate().Tell("vanish");
        return [this] {
            // The module then reconnects to the Orb router.
            mUnit.UpsetLinks();
            mUnit.GetUpdate().Tell("appear");
            mUnit.GetUpdate().Tell("connect 55000 source=49190");
            mUnit.UpsetLinks();
        };
    });
    Add("the Orb router goes", 4000, [this] {
        mUnit.GetOrb().Tell("vanish");
        return [this] {
            // The module gets its identity again, and takes its links down and up for that.
            mUnit.UpsetLinks();
            mUnit.GetOrb().Tell("appear");
            mUnit.GetOrb().Tell("connect 55000");
            mUnit.UpsetLinks();
        };
    });
    Add("the Orb router stalls", 4000, [this] {
        mUnit.GetOrb().Tell("stall on");
        return [this] { mUnit.GetOrb().Tell("stall off"); };
    });
}

void Mischief::AddLies()
{
    Add("a neighbour answers wrongly", 6000, [this] {
        static constexpr const char* Modes[] = {"never", "wrong", "short", "garbage", "late 800"};
        static constexpr const char* Requests[] = {"800", "814", "829"};
        const unsigned int link = RandomLink();
        const std::string request = Requests[Random(0, 2)];
        TellPeer(link, "answer " + request + " " + Modes[Random(0, 4)]);
        TellPeer(link, "reboot 100");
        return [this, link, request] { TellPeer(link, "answer " + request + " normal"); };
    });
    Add("a neighbour lies about itself", 5000, [this]() -> End {
        const unsigned int link = RandomLink();
        if (!mUnit.IsPlugged(link)) return End();
        // The module may stop sending to a router that it refuses.
        mWatch.Disturb(WireOf(link));
        TellPeer(link, "identity 0x00" + RandomHex(3) + " " + std::to_string(Random(0, 12)));
        return [this, link] {
            if (mUnit.IsPlugged(link)) {
                const Neighbour& neighbour = mUnit.GetNeighbour(link);
                mUnit.Plug(link, neighbour);
            }
            mWatch.Calm(WireOf(link));
        };
    });
    Add("a neighbour sends garbage on its stream", 1000, [this] {
        TellPeer(RandomLink(), "raw " + RandomHex(Random(1, 400)));
        return End();
    });
    Add("strangers send garbage", 3000, [this] {
        auto streams = std::make_shared<std::list<ByteStream>>();
        for (int i = 0; i < 20; ++i) {
            streams->push_back(Connect(i % 2 == 0 ? LocalStream : RouterStream));
            std::string bytes;
            switch (i % 4) {
            case 0: // random
                for (int size = Random(1, 5000); size > 0; --size)
                    bytes += static_cast<char>(Random(0, 255));
                break;
            case 1: // an item that is too large
                bytes = std::string("\x47\x03\x00\x28\xFF\xFF\xFF\x7F", 8) + std::string(1000, 'x');
                break;
            case 2: // one that never ends
                bytes = std::string("\x47\x03\x00\x28\x00\x00\xF0\x00", 8) + std::string(200000, 'x');
                break;
            default: // a list with a false count, in each command
                for (unsigned int id = 640; id < 900; ++id) {
                    bytes += static_cast<char>(id & 0xFF);
                    bytes += static_cast<char>(id >> 8);
                    bytes += std::string("\x00\x28", 2) + Word(16) + std::string(16, '\xFF');
                }
            }
            Pour(streams->back(), bytes, milliseconds(300));
        }
        return [streams] { streams->clear(); };
    });
    Add("false heartbeats flood a link", 1000, [this] {
        const unsigned int link = RandomLink();
        if (!mUnit.IsPlugged(link)) return End();
        std::istringstream words(mUnit.GetPeer(link).Tell("address").front());
        std::string own;
        std::string module;
        words >> own >> module;
        try {
            UdpSocket socket(link == 0 ? PrimaryNamespace : SecondaryNamespace, own, 0);
            for (int i = 0; i < 20000; ++i) {
                std::string bytes(static_cast<std::size_t>(i % 50 == 0 ? Random(0, 30) : 12), '\0');
                for (char& byte : bytes)
                    byte = static_cast<char>(Random(0, 255));
                // A box with another identity each time: the module may stop sending to a router that it refuses.
                if (bytes.size() == 12) bytes.replace(4, 4, std::string("\x03\0\0\0", 4));
                socket.SendTo(module, static_cast<std::uint16_t>(60001 + i % 2), bytes);
            }
        } catch (const std::exception&) {
            // The cable may be out.
        }
        return End();
    });
    Add("the driver sends garbage", 1000, [this] {
        for (int i = 0; i < 20; ++i)
            mUnit.TellDriver("raw " + RandomHex(Random(1, 200)));
        mUnit.TellDriver("error " + std::to_string(Random(1, 40)));
        mUnit.TellDriver("burst 300");
        return End();
    });
}

void Mischief::AddSurroundings()
{
    for (const char* const tool : {"ifconfig", "route", "gzip"}) {
        Add(tool[0] == 'i'   ? "ifconfig fails"
            : tool[0] == 'r' ? "route fails"
                             : "gzip fails",
            4000, [this, tool] {
                BreakTool(tool, "fail");
                return [this, tool] { BreakTool(tool, {}); };
            });
        Add(tool[0] == 'i'   ? "ifconfig hangs"
            : tool[0] == 'r' ? "route hangs"
                             : "gzip hangs",
            11000, [this, tool] {
                BreakTool(tool, "hang");
                return [this, tool] { BreakTool(tool, {}); };
            });
    }
    Add("the disk of the log is full", 5000, [this] {
        mSurroundings.FillDisk();
        return [this] { mSurroundings.FreeDisk(); };
    });
    static constexpr const char* Interfaces[] = {"k2link0", "k2link1", "eth0"};
    static constexpr HeartbeatWatch::Wire Wires[] = {HeartbeatWatch::Primary, HeartbeatWatch::Secondary,
                                                     HeartbeatWatch::Internal};
    static constexpr const char* Names[] = {"the primary link loses, delays and reorders",
                                            "the secondary link loses, delays and reorders",
                                            "eth0 loses, delays and reorders"};
    for (int i = 0; i < 3; ++i) {
        Add(Names[i], 6000, [this, i] {
            mWatch.Disturb(Wires[i]);
            mSurroundings.DisturbWire(Interfaces[i]);
            return [this, i] {
                mSurroundings.MendWire(Interfaces[i]);
                // What was delayed has arrived by then.
                std::this_thread::sleep_for(milliseconds(700));
                mWatch.Calm(Wires[i]);
            };
        });
    }
}

void Mischief::BreakTool(const std::string& tool, const std::string& fault)
{
    mSurroundings.BreakTool(tool, fault);
    mBrokenTools.erase(tool);
    if (!fault.empty()) mBrokenTools.insert(tool);
    mUnit.SetToolsBroken(mBrokenTools.count("ifconfig") + mBrokenTools.count("route") != 0);
}

void Mischief::AddLoad()
{
    Add("patches are made and broken", 1000, [this] {
        try {
            for (int i = Random(1, 60); i > 0; --i)
                mUnit.Patch(RandomPatch(), Random(0, 2) != 0);
        } catch (const std::runtime_error&) {
            // The Orb router has no stream for the moment.
        }
        return End();
    });
    Add("commands flood", 3000, [this] {
        auto stream = std::make_shared<ByteStream>(Connect(LocalStream));
        std::string block;
        for (std::size_t i = 0; i < 20000; ++i)
            block += PingItem(i % 60);
        Pour(*stream, block, milliseconds(1500));
        return [stream] { stream->Close(); };
    });
    Add("commands flood on the Orb router's stream", 1000, [this] {
        try {
            for (int i = 0; i < 300; ++i)
                mUnit.GetOrb().Tell("command 839 str:flood u32:1 u32:2");
        } catch (const std::runtime_error&) {
        }
        return End();
    });
    Add("shell clients stall while they tail", 8000, [this] {
        auto clients = std::make_shared<std::list<ByteStream>>();
        for (int i = 0; i < 3; ++i) {
            clients->push_back(Connect(ShellPort));
            std::string lines;
            for (int line = 0; line < 200; ++line)
                lines += line % 10 == 0 ? "help\r\n" : "rs\r\n";
            Pour(clients->back(), lines, milliseconds(300));
        }
        return [clients] { clients->clear(); };
    });
    Add("much is logged", 1000, [this] {
        auto client = std::make_shared<ByteStream>(Connect(ShellPort));
        std::string lines = "tail false\r\n";
        for (int line = 0; line < 500; ++line)
            lines += "line-" + std::to_string(line) + std::string(3000, '.') + "\r\n";
        Pour(*client, lines, milliseconds(2000));
        return [client] { client->Close(); };
    });
    Add("connections come and go", 1000, [] {
        const auto until = Clock::now() + milliseconds(2000);
        for (int i = 0; i < 200 && Clock::now() < until; ++i)
            Connect(i % 3 == 0 ? ShellPort : LocalStream);
        return End();
    });
}

void Mischief::Pour(const ByteStream& stream, const std::string& bytes, Milliseconds patience)
{
    const Deadline deadline(patience);
    pollfd ready{stream.Descriptor(), POLLOUT, 0};
    for (std::size_t sent = 0; sent < bytes.size() && ::poll(&ready, 1, deadline.ForPoll()) == 1;) {
        const ssize_t size =
            ::send(stream.Descriptor(), bytes.data() + sent, bytes.size() - sent, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size <= 0) return;
        sent += static_cast<std::size_t>(size);
    }
}

} // namespace soak
