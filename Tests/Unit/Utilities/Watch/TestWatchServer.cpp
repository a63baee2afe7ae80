// The program but for its options, against a shell that this test plays.

#include "Tests/Support/Await.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Utilities/Watch/HttpServer.h"
#include "Utilities/Watch/Poller.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using namespace watch;
using boost::asio::ip::tcp;
using testing::AnyOfArray;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Guard = std::lock_guard<std::mutex>;

namespace {

const std::string Stamp = "[25/11/26 09:43:38] ";

/// Answers as the module's shell does, and remembers every line that it is sent.
class PlayedShell
{
public:
    PlayedShell()
        : mThread([this] {
              while (!mEnd)
                  Serve(mListener.Accept());
          })
    {}
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
    void Log(const std::string& text) { Write(Stamp + text + "\r\n"); }
    void SetMute(bool mute) { mMute = mute; }
    void LockClock() { mLocked = true; }
    void Close() { ::shutdown(mFd, SHUT_RDWR); }

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
            if (!mMute) Answer(line);
        }
        const Guard lock(mLock);
        mFd = -1;
    }
    void Answer(const std::string& line)
    {
        std::string result;
        if (line == "version") result = "OrbModule 1.0\n";
        if (line == "clock/active") result = mLocked ? "Wordclock\n" : "Internal\n";
        if (line == "tail false" || line == "tail true") result = "true\n";
        if (line == "tail false") mTail = false;
        if (!mTail && line != "tail true") {
            Write(result);
            return;
        }
        if (mTail) Write(Stamp + "CommandLine: Received " + line + "\r\n");
        mTail = true;
        Write(Stamp + "CommandLine: Sent " + line.substr(0, line.find(' ')) + " Result\r\n" + result + "\r\n");
    }

    const LoopbackListener mListener;
    std::atomic<int> mFd{-1};
    bool mTail = true;
    std::mutex mLock;
    std::vector<std::string> mLines;
    std::atomic<bool> mEnd{false};
    std::atomic<bool> mMute{false};
    std::atomic<bool> mLocked{false};
    std::thread mThread;
};

class Server : public testing::Test
{
protected:
    explicit Server(Poller::Settings settings = {})
        : mPoller(mContext, mShell.Endpoint(), mPicture, settings),
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
    ~Server() override
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

    PlayedShell mShell;
    boost::asio::io_context mContext;
    Picture mPicture{"the shell"};
    Poller mPoller;
    tcp::acceptor mAcceptor;
    const std::uint16_t mPort;
    HttpServer mServer;
    std::thread mThread;
};

/// Whatever a browser asks for, in whatever form, the module is sent listings and nothing else.
TEST_F(Server, NoRequestBringsForthAnotherCommand)
{
    for (const char* target :
         {"/", "/api/state", "/metrics", "/healthz", "/api/state?command=quit", "/quit", "/%0aquit%0a", "/api/../quit",
          "/adma/clear_all", "quit", "*", "http://localhost/api/state", "/app.js?\"quit\"", "/patch%200%205%201%207"})
        Ask(target);
    for (const char* method : {"POST", "PUT", "DELETE", "PATCH", "OPTIONS", "CONNECT", "quit"}) {
        const auto post =
            Sent(std::string(method) + " /api/state HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\n\r\nquit\n");
        EXPECT_THAT(post.ReceiveThrough("\r\n"), Not(HasSubstr(" 200 "))) << method;
    }
    Sent("quit\r\n\nquit\n\r\n\r\n").ReceiveToEnd();
    const LoopbackPeer events =
        Sent("GET /events HTTP/1.1\r\nHost: localhost\r\nLast-Event-ID: 1\nquit\n\r\n\r\nquit\nquit\n");
    EXPECT_THAT(Get("/events").ReceiveThrough("\"clocks\":"), HasSubstr("event: state"));
    WaitFor([this] { return mShell.Rounds() > 0; });
    EXPECT_THAT(mShell.Lines(), Each(AnyOfArray(ShellCommandTexts)));
    EXPECT_THAT(mShell.Lines(), Contains("clock/active"));
}

TEST_F(Server, AnswersItsOwnHostsAlone)
{
    const std::string page = Ask("/", "127.0.0.1:1");
    EXPECT_THAT(page, StartsWith("HTTP/1.1 200 OK"));
    EXPECT_THAT(page, HasSubstr("Content-Security-Policy: default-src 'none'; script-src 'self'"));
    EXPECT_THAT(page, HasSubstr("<title>OrbWatch</title>"));
    for (const char* path : {"/", "/api/state", "/events", "/metrics", "/healthz"})
        EXPECT_THAT(Ask(path, "evil.example"), StartsWith("HTTP/1.1 421 ")) << path;
    EXPECT_THAT(Ask("/nothing"), StartsWith("HTTP/1.1 404 "));
    const auto big = Sent("GET / HTTP/1.1\r\nHost: localhost\r\nX: " + std::string(10000, 'x') + "\r\n\r\n");
    EXPECT_THAT(big.ReceiveThrough("\r\n"), StartsWith("HTTP/1.1 431 "));
}

/// The module gets requests only while a page is open, and one round a second at most.
TEST_F(Server, AsksOnlyWhenSomebodyLooksAndWhenTheLogMoves)
{
    mShell.Log("nobody sees this");
    Ask("/");
    EXPECT_EQ(mShell.Rounds(), 0);
    const auto start = std::chrono::steady_clock::now();
    const std::string state = Ask("/api/state");
    EXPECT_THAT(state, HasSubstr("\"contact\":\"live\""));
    EXPECT_THAT(state, HasSubstr("\"active\":\"Internal\""));
    const long before = mShell.Rounds();
    EXPECT_GE(before, 1);
    for (int i = 0; i < 50; ++i) {
        mShell.Log("something happens");
        Ask("/api/state");
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
    EXPECT_LE(static_cast<double>(mShell.Rounds()), 1 + passed.count());
    mShell.Log("and once more");
    const long now = mShell.Rounds();
    WaitFor([&] { return mShell.Rounds() > now; });
}

/// Clocks change without a line in the log.
TEST_F(Server, ReadsTheClocksWhileAPageIsOpen)
{
    const LoopbackPeer page = Get("/events");
    page.ReceiveThrough("\"active\":\"Internal\"");
    const long rounds = mShell.Rounds();
    mShell.LockClock();
    EXPECT_THAT(page.ReceiveThrough("\"active\":\"Wordclock\""), HasSubstr("Wordclock"));
    EXPECT_EQ(mShell.Rounds(), rounds);
}

/// A browser that takes nothing holds up neither the module nor another browser.
TEST_F(Server, ABrowserThatDoesNotReadIsNotWaitedFor)
{
    const LoopbackPeer stuck = Get("/events");
    const LoopbackPeer other = Get("/events");
    other.ReceiveThrough("event: state");
    for (int i = 0; i < 3000; ++i)
        mShell.Log("line " + std::to_string(i) + std::string(2000, 'x'));
    mShell.Log("the last line");
    EXPECT_THAT(other.ReceiveThrough("the last line"), HasSubstr("the last line"));
}

Poller::Settings Impatient()
{
    Poller::Settings settings;
    settings.replyPatience = settings.silencePatience = std::chrono::milliseconds(200);
    return settings;
}
struct ImpatientServer : Server
{
    ImpatientServer() : Server(Impatient()) {}
};

TEST_F(ImpatientServer, SaysWhenTheModuleIsSilentAwayAndBack)
{
    const LoopbackPeer page = Get("/events");
    page.ReceiveThrough("\"contact\":\"live\"");
    mShell.Close();
    EXPECT_THAT(page.ReceiveThrough("\"contact\":\"away\""), HasSubstr("\"contact\":\"away\""));
    EXPECT_THAT(Ask("/healthz"), HasSubstr("503 "));
    EXPECT_THAT(page.ReceiveThrough("\"restarts\":1"), HasSubstr("\"contact\":\"live\""));
    mShell.SetMute(true);
    mShell.Log("look again");
    EXPECT_THAT(page.ReceiveThrough("\"contact\":\"silent\""), HasSubstr("\"contact\":\"silent\""));
    const auto lines = mShell.Lines().size();
    Ask("/api/state");
    EXPECT_EQ(mShell.Lines().size(), lines);
}

Poller::Settings Sparing()
{
    Poller::Settings settings;
    settings.logBurst = 100;
    return settings;
}
struct SparingServer : Server
{
    SparingServer() : Server(Sparing()) {}
};

TEST_F(SparingServer, ListingsDoNotFillTheLog)
{
    EXPECT_THAT(Get("/events").ReceiveThrough("\"sparing\":true"), HasSubstr("\"sparing\":true"));
}

} // namespace
