// The program but for its options, against a shell that this test plays.

#include "Tests/Support/Await.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Utilities/Watch/HttpServer.h"
#include "Utilities/Watch/Poller.h"

#include <gmock/gmock.h>

#include <atomic>
#include <mutex>
#include <thread>

using namespace watch;
using boost::asio::ip::tcp;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Guard = std::lock_guard<std::mutex>;

namespace {

/// Answers as the module's shell does, and remembers every line that it is sent.
class PlayedShell
{
public:
    ~PlayedShell()
    {
        mEnd = true;
        Close();
        LoopbackPeer::ConnectTo(mListener.GetPort());
        mThread.join();
    }

    tcp::endpoint Endpoint() const { return {boost::asio::ip::address_v4::loopback(), mListener.GetPort()}; }
    std::vector<std::string> Lines()
    {
        const Guard lock(mLock);
        return mLines;
    }
    long Rounds()
    {
        const auto lines = Lines();
        return std::count(lines.begin(), lines.end(), "sio");
    }
    void Log(const std::string& text) { Write("[25/11/26 09:43:38] " + text + "\r\n"); }
    void Close() { ::shutdown(mFd, SHUT_RDWR); }

    std::atomic<bool> mute{false};
    std::atomic<bool> isClockLocked{false};

private:
    void Write(const std::string& text)
    {
        const Guard lock(mLock);
        ::send(mFd, text.data(), text.size(), MSG_NOSIGNAL);
    }
    void Serve(const LoopbackPeer& peer)
    {
        mFd = peer.GetFd();
        Write("\nOstrel command shell: OrbModule now\nType 'help' to see available commands.\n"
              "Type 'cmd --help' to find out more about 'cmd'.\n");
        for (std::string line; !(line = peer.ReceiveThrough("\n")).empty();) {
            line.pop_back();
            {
                const Guard lock(mLock);
                mLines.push_back(line);
            }
            if (!mute) Answer(line);
        }
        const Guard lock(mLock);
        mFd = -1;
    }
    void Answer(const std::string& line)
    {
        std::string result;
        if (line == "version") result = "OrbModule 1.0\n";
        if (line == "clock/active") result = isClockLocked ? "Wordclock\n" : "Internal\n";
        if (line == "tail false" || line == "tail true") result = "true\n";
        if (line == "tail false") mTail = false;
        if (!mTail && line != "tail true") {
            Write(result);
            return;
        }
        if (mTail) Log("CommandLine: Received " + line);
        mTail = true;
        Log("CommandLine: Sent " + line.substr(0, line.find(' ')) + " Result\r\n" + result);
    }

    const LoopbackListener mListener;
    std::atomic<int> mFd{-1};
    bool mTail = true;
    std::mutex mLock;
    std::vector<std::string> mLines;
    std::atomic<bool> mEnd{false};
    std::thread mThread{[this] {
        while (!mEnd)
            Serve(mListener.Accept());
    }};
};

class Server
{
public:
    explicit Server(const Poller::Settings& settings = {})
        : mPoller(mContext, shell.Endpoint(), mPicture, settings),
          mAcceptor(mContext, {boost::asio::ip::address_v4::loopback(), 0}),
          mPort(mAcceptor.local_endpoint().port()),
          mServer(mContext, std::move(mAcceptor), mPicture, mPoller, {})
    {
        mPoller.SetChanged([this] { mServer.OnChange(); });
        mServer.Start();
        mPoller.Start();
        mThread = std::thread([this] { mContext.run(); });
        WaitFor([this] { return Ask("/healthz").find(" 200 ") != std::string::npos; });
    }
    ~Server()
    {
        mContext.stop();
        mThread.join();
    }
    /// A browser that has sent this.
    LoopbackPeer Sent(const std::string& bytes) const
    {
        LoopbackPeer browser = LoopbackPeer::ConnectTo(mPort);
        browser.Send(bytes);
        return browser;
    }
    LoopbackPeer Get(const std::string& target, const std::string& host = "localhost") const
    {
        return Sent("GET " + target + " HTTP/1.1\r\nHost: " + host + "\r\nConnection: close\r\n\r\n");
    }
    std::string Ask(const std::string& target, const std::string& host = "localhost") const
    {
        return Get(target, host).ReceiveToEnd();
    }
    template <class Condition>
    static void WaitFor(Condition condition)
    {
        EXPECT_TRUE(Await(condition, [] { std::this_thread::sleep_for(std::chrono::milliseconds(10)); }));
    }

    PlayedShell shell;

private:
    boost::asio::io_context mContext;
    Picture mPicture{"the shell"};
    Poller mPoller;
    tcp::acceptor mAcceptor;
    const std::uint16_t mPort;
    HttpServer mServer;
    std::thread mThread;
};

void ExpectThrough(const LoopbackPeer& page, const std::string& text)
{
    EXPECT_THAT(page.ReceiveThrough(text), HasSubstr(text));
}

/// Whatever a browser asks for, in whatever form, the module is sent listings and nothing else.
TEST(Server, NoRequestBringsForthAnotherCommand)
{
    Server server;
    for (const char* target :
         {"/", "/api/state", "/metrics", "/healthz", "/api/state?command=quit", "/quit", "/%0aquit%0a", "/api/../quit",
          "/adma/clear_all", "quit", "*", "http://localhost/api/state", "/app.js?\"quit\"", "/patch%200%205%201%207"})
        server.Ask(target);
    for (const char* method : {"POST", "PUT", "DELETE", "PATCH", "OPTIONS", "CONNECT", "quit"}) {
        const auto post = server.Sent(std::string(method) +
                                      " /api/state HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\n\r\nquit\n");
        EXPECT_THAT(post.ReceiveThrough("\r\n"), Not(HasSubstr(" 200 "))) << method;
    }
    server.Sent("quit\r\n\nquit\n\r\n\r\n").ReceiveToEnd();
    const LoopbackPeer events =
        server.Sent("GET /events HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: 1\nquit\n\r\n\r\nquit\nquit\n");
    ExpectThrough(server.Get("/events"), "event: state");
    server.WaitFor([&] { return server.shell.Rounds() > 0; });
    EXPECT_THAT(server.shell.Lines(), testing::Each(testing::AnyOfArray(ShellCommandTexts)));
    EXPECT_THAT(server.shell.Lines(), testing::Contains("clock/active"));
}

TEST(Server, AnswersItsOwnHostsAlone)
{
    const Server server;
    EXPECT_THAT(server.Ask("/", "127.0.0.1:1"),
                AllOf(StartsWith("HTTP/1.1 200 OK"), HasSubstr("<title>OrbWatch</title>"),
                      HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self'")));
    for (const char* path : {"/", "/api/state", "/events", "/metrics", "/healthz"})
        EXPECT_THAT(server.Ask(path, "evil.example"), StartsWith("HTTP/1.1 421 ")) << path;
    EXPECT_THAT(server.Ask("/nothing"), StartsWith("HTTP/1.1 404 "));
    EXPECT_THAT(server.Sent("DELETE / HTTP/1.1\r\nHost: localhost\r\n\r\n").ReceiveThrough("\r\n"),
                StartsWith("HTTP/1.1 405 "));
    const auto big = server.Sent("GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(10000, 'x') + "\r\n\r\n");
    EXPECT_THAT(big.ReceiveThrough("\r\n"), StartsWith("HTTP/1.1 431 "));
}

/// The module gets requests only while a page is open, and one round a second at most.
TEST(Server, AsksOnlyWhenSomebodyLooksAndWhenTheLogMoves)
{
    Server server;
    server.shell.Log("nobody sees this");
    server.Ask("/");
    EXPECT_EQ(server.shell.Rounds(), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_THAT(server.Ask("/api/state"),
                AllOf(HasSubstr("\"contact\":\"live\""), HasSubstr("\"active\":\"Internal\"")));
    EXPECT_GE(server.shell.Rounds(), 1);
    for (int i = 0; i < 50; ++i) {
        server.shell.Log("something happens");
        server.Ask("/api/state");
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_LE(static_cast<double>(server.shell.Rounds()), 1 + passed.count());
    server.shell.Log("and once more");
    const long now = server.shell.Rounds();
    server.WaitFor([&] { return server.shell.Rounds() > now; });
}

/// Clocks change without a line in the log.
TEST(Server, ReadsTheClocksWhileAPageIsOpen)
{
    Server server;
    const LoopbackPeer page = server.Get("/events");
    ExpectThrough(page, "\"active\":\"Internal\"");
    const long rounds = server.shell.Rounds();
    server.shell.isClockLocked = true;
    ExpectThrough(page, "\"active\":\"Wordclock\"");
    EXPECT_EQ(server.shell.Rounds(), rounds);
}

/// A browser that takes nothing holds up neither the module nor another browser.
TEST(Server, ABrowserThatDoesNotReadIsNotWaitedFor)
{
    Server server;
    const LoopbackPeer stuck = server.Get("/events");
    const LoopbackPeer other = server.Get("/events");
    ExpectThrough(other, "event: state");
    for (int i = 0; i < 3000; ++i)
        server.shell.Log("line " + std::to_string(i) + std::string(2000, 'x'));
    server.shell.Log("the last line");
    ExpectThrough(other, "the last line");
}

TEST(Server, SaysWhenTheModuleIsSilentAwayAndBack)
{
    Poller::Settings settings;
    settings.replyPatience = settings.silencePatience = std::chrono::milliseconds(200);
    Server server(settings);
    const LoopbackPeer page = server.Get("/events");
    ExpectThrough(page, "\"contact\":\"live\"");
    server.shell.Close();
    ExpectThrough(page, "\"contact\":\"away\"");
    EXPECT_THAT(server.Ask("/healthz"), HasSubstr("503 "));
    EXPECT_THAT(page.ReceiveThrough("\"restarts\":1"), HasSubstr("\"contact\":\"live\""));
    server.shell.mute = true;
    server.shell.Log("look again");
    ExpectThrough(page, "\"contact\":\"silent\"");
    const auto lines = server.shell.Lines().size();
    server.Ask("/api/state");
    EXPECT_EQ(server.shell.Lines().size(), lines);
}

TEST(Server, ListingsDoNotFillTheLog)
{
    Poller::Settings settings;
    settings.logBurst = 100;
    ExpectThrough(Server(settings).Get("/events"), "\"sparing\":true");
}

} // namespace
