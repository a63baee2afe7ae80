// The program but for main, in one thread, against a shell that this test plays: the sockets are real, and the time
// moves only when the test says so.

#include "Tests/Support/Joined.h"
#include "Tests/Support/LoopbackPeer.h"
#include "Tests/Support/ParsedOptions.h"
#include "Tests/Support/Transcript.h"
#include "Tests/Unit/Utilities/Watch/Polling.scenes.h"
#include "Utilities/Watch/Program.h"

#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>
#include <gmock/gmock.h>

#include <map>
#include <set>

#include <fcntl.h>
#include <sys/resource.h>

using namespace watch;
using boost::asio::ip::tcp;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace watch {

constexpr milliseconds Start{1000000};
static milliseconds sNow = Start;

Clock::time_point Clock::now()
{
    return time_point(sNow);
}
Milliseconds NowMs()
{
    return sNow.count();
}

} // namespace watch

namespace {

const tcp::endpoint AnyPort(boost::asio::ip::address_v4::loopback(), 0);

/// Answers as the module's shell does, and remembers every line that it is sent.
class PlayedShell
{
public:
    explicit PlayedShell(boost::asio::io_context& context) : mAcceptor(context, AnyPort), mSocket(context) { Accept(); }

    tcp::endpoint Endpoint() const { return mAcceptor.local_endpoint(); }
    void Log(const std::string& text) { Write(("[25/11/26 09:43:38] " + text + "\r\n").substr(0, 4095)); }
    void Close()
    {
        mSocket.close();
        Accept();
    }

    void Answer(const std::string& line)
    {
        const std::string result = line.rfind("tail", 0) == 0 ? "true\n" : results[line];
        if (line == "tail false") mTail = false;
        if (!mTail && line != "tail true") {
            Write(result);
        } else if (!omitted.count("log")) {
            if (mTail) Log("CommandLine: Received " + line);
            if (IsRecord(line)) Write(result);
            Log("CommandLine: Sent " + line.substr(0, line.find(' ')) + " Result\r\n" + (IsRecord(line) ? "" : result));
        }
        if (line == "tail true") mTail = true;
    }

    std::string lines;
    std::map<std::string, std::string> results{{"version", "OrbModule 1.0\n"}, {"clock/active", "Internal\n"}};
    /// What it does not do: "greet", "answer", "log".
    std::set<std::string> omitted;

private:
    void Write(const std::string& text)
    {
        boost::system::error_code ignored;
        boost::asio::write(mSocket, boost::asio::buffer(text), ignored);
    }
    void Accept()
    {
        mAcceptor.async_accept(mSocket, [this](const boost::system::error_code& error) {
            if (error) return;
            mSocket.set_option(tcp::no_delay(true));
            mTail = true;
            lines += "connect ";
            if (!omitted.count("greet")) Write("\nType 'cmd --help' to find out more about 'cmd'.\n");
            Read();
        });
    }
    void Read()
    {
        boost::asio::async_read_until(mSocket, boost::asio::dynamic_buffer(mInput), '\n',
                                      [this](const boost::system::error_code& error, std::size_t size) {
                                          if (error == boost::asio::error::eof) {
                                              lines += "end ";
                                              Close();
                                          }
                                          if (error) return;
                                          const std::string line = mInput.substr(0, size - 1);
                                          mInput.erase(0, size);
                                          lines += line + " ";
                                          if (!omitted.count("answer")) Answer(line);
                                          Read();
                                      });
    }
    static bool IsRecord(const std::string& line) { return line == "sio" || line == "sr" || line == "ps"; }

    tcp::acceptor mAcceptor;
    tcp::socket mSocket;
    std::string mInput;
    bool mTail = true;
};

class Site : public testing::Test
{
protected:
    Site() { Settle(); }
    /// Runs until nothing more happens at this time.
    void Settle()
    {
        while (mContext.run_for(milliseconds(2)) + mContext.poll() != 0) {
        }
    }
    void At(int time)
    {
        sNow = Start + milliseconds(time);
        // The context looks at its timers when the earliest has ended.
        mKick.expires_at(Clock::time_point());
        mKick.async_wait([](const boost::system::error_code&) {});
        Settle();
    }
    /// A browser that has sent this.
    LoopbackPeer Sent(const std::string& bytes, std::uint16_t port = 0)
    {
        LoopbackPeer browser = LoopbackPeer::ConnectTo(port == 0 ? mPort : port);
        browser.Send(bytes);
        Settle();
        return browser;
    }
    LoopbackPeer Get(const std::string& target, const std::string& header = "Connection: close\r\n")
    {
        return Sent("GET " + target + " HTTP/1.1\r\nHost: localhost\r\n" + header + "\r\n");
    }
    /// What has come by now, and whether it has ended. What is taken may bring more.
    std::string Taken(const LoopbackPeer& browser)
    {
        std::string bytes(1 << 20, 0);
        std::string taken;
        ssize_t size;
        for (; (size = ::recv(browser.GetFd(), &bytes[0], bytes.size(), MSG_DONTWAIT)) > 0; Settle())
            taken.append(bytes, 0, static_cast<std::size_t>(size));
        return size == 0 ? taken + "<end>" : taken;
    }
    /// What has come, with its line ends and the headers that each response has in short; type and length unnamed.
    std::string Short(const LoopbackPeer& browser)
    {
        std::string text = Taken(browser);
        const std::size_t from = text.find("Content-Security-Policy: default-src 'none'; script-src 'self'; style-src");
        const std::string last = "Cache-Control: no-cache\r\n";
        const std::size_t to = text.find(last);
        if (from < to && to != std::string::npos) text.replace(from, to + last.size() - from, "(security)\r\n");
        return std::regex_replace(text, std::regex("\r\n(Content-(Type|Length): )?"), "|");
    }
    static std::uint16_t PortOf(const Program& program)
    {
        const std::string greeting = program.Greeting();
        return static_cast<std::uint16_t>(std::stoi(greeting.substr(greeting.rfind(':') + 1)));
    }
    Options MakeOptions()
    {
        Options options;
        options.shell = shell.Endpoint();
        options.listen = AnyPort;
        options.hosts = {"console-7"};
        return options;
    }

    const milliseconds mStart = sNow = Start;
    boost::asio::io_context mContext;
    PlayedShell shell{mContext};
    Program mProgram{mContext, MakeOptions()};
    const std::uint16_t mPort = PortOf(mProgram);

private:
    Timer mKick{mContext};
};

const std::string Round = "sio sr ps rs adma/status clock/status clock/active";

/// What the module is sent, and what an open page shows of it: the contact, whether Information is on, the long
/// listings, restarts, rounds, and whether the log is spared.
class Polling : public Site, public testing::WithParamInterface<Scene>
{
protected:
    Lines Play(const std::string& event)
    {
        const std::string verb = event.substr(0, event.find(' '));
        const std::string rest = verb == event ? "" : event.substr(verb.size() + 1);
        if (verb == "at") At(std::stoi(rest));
        if (verb == "log") shell.Log(rest);
        if (verb == "close") shell.Close();
        if (verb == "omit") shell.omitted.insert(rest);
        if (verb == "no") shell.omitted.erase(rest);
        if (shell.results.count(verb)) shell.results[verb] = rest + "\n";
        if (verb == "answer") shell.Answer(rest);
        if (verb == "ps") {
            shell.results["ps"] =
                "[25/11/26 09:43:38] PI  Src HID:1(0.1 ), Style:1(Input), Idx:3 \n\t\t\tDst HID:2(0.2 ), "
                "Style:2(Output), Idx:5 \n\t\t\tPri Patch Retry Sent \n\t\t\tSec Patch Success\n" +
                std::string(static_cast<std::size_t>(std::stoi(rest)), 'x');
        }
        if (verb == "rs") shell.results["rs"] = std::string(static_cast<std::size_t>(std::stoi(rest)), 'x') + "\n";
        if (verb == "page") mPage = Get("/events");
        if (verb == "leave") mPage.Close();
        if (verb == "get") mScrapes.push_back(Get(rest));
        Settle();
        std::string seen = std::regex_replace(std::exchange(shell.lines, {}), std::regex(Round), "round");
        seen = std::regex_replace(seen, std::regex("clock/status clock/active"), "clocks");
        seen = std::regex_replace(seen, std::regex("tail false ([^ ]+) version tail true"), "($1)");
        for (const LoopbackPeer& scrape : mScrapes) {
            const std::string text = Taken(scrape);
            if (text.size() > 12) seen += text.substr(9, 3) + " ";
        }
        const std::string page = Taken(mPage);
        const std::regex watch(
            R"re("contact":"(\w+)","information":(\w+),"longListings":\[(.*?)\],"restarts":(\d+),"rounds":(\d+),"shell":"[^"]+","since":\d+,"sparing":(\w+)|"active":"(\w+)"|"version":"([^"]+)")re");
        for (std::sregex_iterator part(page.begin(), page.end(), watch), end; part != end; ++part)
            seen += part->format("<$1 $2 $3 $4 $5 $6$7$8> ");
        if (seen.empty()) return {};
        seen.pop_back();
        return {seen};
    }

private:
    LoopbackPeer mPage{-1};
    std::vector<LoopbackPeer> mScrapes;
};

TEST_P(Polling, AsksWhenItShould)
{
    ExpectTranscript(GetParam().script, [this](const std::string& event) { return Play(event); });
}

INSTANTIATE_TEST_SUITE_P(Scenes, Polling, testing::ValuesIn(ScenesOf(PollingScenes)), NameOfScene);

/// Whatever a browser asks for, in whatever form, the module is sent listings and nothing else.
TEST_F(Site, NoRequestBringsForthAnotherCommand)
{
    for (const std::string start :
         {"GET /", "GET /api/state?command=quit", "GET /metrics", "GET /healthz", "GET /quit", "GET /%0aquit%0a",
          "GET /api/../adma/clear_all", "GET quit", "GET *", "GET http://localhost/api/state", "GET /app.js?\"quit\"",
          "GET /patch%200%205%201%207", "POST /api/state", "DELETE /api/state", "CONNECT quit", "quit /api/state"})
        Sent(start + " HTTP/1.1\r\nHost: localhost\r\n\r\nquit\n");
    Sent("quit\r\n\nquit\n\r\n\r\n");
    Sent("POST /api/state HTTP/1.1\r\nHost: localhost\r\nContent-Length: 5\r\n\r\nquit\n");
    const LoopbackPeer page = Get("/events", "Last-Event-ID: 1\nquit\n\r\n\r\nquit\nquit\n");
    At(1000);
    EXPECT_EQ(shell.lines, "connect tail false version tail true " + Round + " ");
}

TEST_F(Site, AnswersItsOwnHostsAlone)
{
    const std::string host = " HTTP/1.1\r\nHost: CONSOLE-7:1\r\n";
    const std::pair<std::string, std::string> cases[] = {
        {"GET /healthz HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", "HTTP/1.1 200 OK|text/plain|(security)|3||ok\n"},
        {"HEAD /healthz" + host + "\r\n", "HTTP/1.1 200 OK|text/plain|(security)|3||"},
        {"GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n", "HTTP/1.1 421 Misdirected Request|text/plain|(security)|52||"
                                                         "This is not a host that OrbWatch knows; see --host.\n"},
        {"HEAD /events" + host + "\r\n", "HTTP/1.1 404 Not Found|text/plain|(security)|23||"},
        {"HEAD /" + host + "\r\n", "HTTP/1.1 200 OK|text/html; charset=utf-8|ETag: *"},
        {"HEAD /app.js" + host + "\r\n", "HTTP/1.1 200 OK|text/javascript; charset=utf-8|ETag: *"},
        {"HEAD /style.css" + host + "\r\n", "HTTP/1.1 200 OK|text/css; charset=utf-8|ETag: *"},
        {"HEAD /icon.svg" + host + "\r\n", "HTTP/1.1 200 OK|image/svg+xml|ETag: *"},
        {"HEAD /metrics" + host + "\r\n", "HTTP/1.1 200 OK|text/plain; version=0.0.4; charset=utf-8|(security)|*"},
        {"HEAD /api/state" + host + "\r\n", "HTTP/1.1 200 OK|application/json|(security)|*"},
        {"DELETE /" + host + "\r\n",
         "HTTP/1.1 405 Method Not Allowed|text/plain|Allow: GET, HEAD|(security)|21||OrbWatch only shows.\n"},
        {"GET /nothing?x HTTP/1.0\r\nHost: localhost\r\n\r\n",
         "HTTP/1.0 404 Not Found|text/plain|(security)|23||There is nothing here.\n<end>"},
    };
    const LoopbackPeer browser = LoopbackPeer::ConnectTo(mPort, "127.0.0.1", "127.0.0.2");
    for (const auto& [request, response] : cases) {
        browser.Send(request);
        Settle();
        const std::size_t end = response.find('*');
        EXPECT_EQ(Short(browser).substr(0, end), response.substr(0, end));
    }
    EXPECT_EQ(Short(Sent("POST /" + host + "Content-Length: 1\r\n\r\nx")),
              "HTTP/1.1 413 Payload Too Large|text/plain|(security)|Connection: close|21||OrbWatch only shows.\n<end>");
    EXPECT_EQ(
        Short(Sent("GET /" + host + "X: " + std::string(8186, 'x') + "\r\n\r\n")),
        "HTTP/1.1 431 Request Header Fields Too Large|text/plain|(security)|Connection: close|9||too long\n<end>");
    EXPECT_EQ(Short(Sent("x\r\n\r\n")), "<end>");
    const std::string page = Short(Get("/"));
    EXPECT_THAT(page,
                AllOf(HasSubstr("(security)|"), HasSubstr("<title>OrbWatch</title>"), EndsWith("</html>\n<end>")));
    const std::string tag = page.substr(page.find("ETag: ") + 6, 18);
    EXPECT_EQ(Short(Get("/", "If-None-Match: " + tag + "\r\nConnection: close\r\n")),
              "HTTP/1.1 304 Not Modified|text/html; charset=utf-8|(security)|Connection: close|0||<end>");
    EXPECT_THAT(Short(Get("/metrics")), HasSubstr("orbwatch_http_requests_total 15\n"));
}

TEST_F(Site, APageGetsTheStateTheLogAndTicks)
{
    const std::string state = Short(Get("/api/state"));
    const std::size_t body = state.find("||") + 2;
    const LoopbackPeer page = Get("/events", "\r\nwhat a browser sends later");
    EXPECT_EQ(Short(page), "HTTP/1.1 200 OK|text/event-stream|Connection: close|(security)||retry: 1000\n\n"
                           "event: state\ndata: " +
                               state.substr(body, state.find('\n') - body) + "\n\n");
    At(1000);
    At(2000);
    EXPECT_EQ(Taken(page), "event: tick\ndata: {\"time\":1002000}\n\n");
    shell.Log("one");
    At(2100);
    At(2150);
    EXPECT_EQ(Taken(page),
              "id: 1\nevent: log\ndata: {\"lines\":[{\"feature\":\"unknown\",\"number\":1,\"stamp\":\"25/11/26 "
              "09:43:38\",\"text\":\"one\",\"time\":1002100}],\"missed\":0}\n\n");
    // More lines than go out at once, and pages that have some of them.
    for (int i = 2; i <= 203; ++i)
        shell.Log(std::to_string(i));
    Settle();
    At(2200);
    const auto events = [](const std::string& text) {
        const std::regex event(
            "id: (\\d+)\nevent: log\ndata: \\{\"lines\":\\[\\{\"feature\":\"unknown\",\"number\":(\\d+)");
        std::string found;
        for (std::sregex_iterator at(text.begin(), text.end(), event), end; at != end; ++at)
            found += at->format("$2-$1 ");
        return found;
    };
    EXPECT_EQ(events(Taken(page)), "2-201 202-202 ");
    At(2250);
    At(2300);
    EXPECT_EQ(events(Taken(page)), "203-203 ");
    EXPECT_EQ(events(Taken(Get("/events", "Last-Event-ID: 201\r\n"))), "202-203 ");
    EXPECT_EQ(events(Taken(Get("/events", "Last-Event-ID: 203\r\n"))), "");
    EXPECT_EQ(events(Taken(Get("/events", "Last-Event-ID: 204\r\n"))), "1-200 201-203 ");
    EXPECT_EQ(events(Taken(Get("/events"))), "1-200 201-203 ");
}

TEST_F(Site, ABrowserThatDoesNotReadIsNotWaitedFor)
{
    const LoopbackPeer stuck = Get("/events");
    const LoopbackPeer other = Get("/events");
    std::string seen;
    for (int burst = 1; burst <= 12; ++burst) {
        for (int i = 0; i < 125; ++i)
            shell.Log(std::to_string(burst) + std::string(4000, 'x'));
        At(burst * 100);
        seen = Taken(other);
    }
    EXPECT_THAT(seen, HasSubstr("\"11xxx"));
    for (seen.clear(); seen.find("\"11xxx") == std::string::npos && seen.size() < (20 << 20);)
        seen += Taken(stuck);
    EXPECT_THAT(seen, testing::ContainsRegex("\"missed\":[1-9]"));
}

TEST_F(Site, HasAPlaceForSoManyBrowsersAndPages)
{
    std::vector<LoopbackPeer> pages(16);
    for (LoopbackPeer& page : pages)
        page = Get("/events");
    EXPECT_THAT(Short(Get("/events")),
                AllOf(StartsWith("HTTP/1.1 503 "), HasSubstr("||Too many pages are open.\n<end>")));
    pages.pop_back();
    Settle();
    EXPECT_THAT(Short(Get("/metrics")), HasSubstr("orbwatch_viewers 15\n"));
    for (int i = 15; i < 64; ++i)
        pages.push_back(Sent(""));
    EXPECT_EQ(Taken(pages.back()), "");
    EXPECT_EQ(Taken(Sent("")), "<end>");
    pages.back() = LoopbackPeer::ConnectTo(mPort);
    pages.back().Send("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n");
    // Without a descriptor the accept waits, and then tries again.
    rlimit descriptors{};
    ::getrlimit(RLIMIT_NOFILE, &descriptors);
    const rlimit none{0, descriptors.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    Settle();
    ::setrlimit(RLIMIT_NOFILE, &descriptors);
    At(100);
    EXPECT_THAT(Taken(pages.back()), StartsWith("HTTP/1.1 200 "));
}

TEST_F(Site, GivesUpAConnectionThatNobodyAccepts)
{
    // Its queue holds one, and the next has to wait.
    const LoopbackPeer full = LoopbackPeer::Bound("127.0.0.1", 0);
    Options options = MakeOptions();
    options.shell.port(full.GetPort());
    const Program refused(mContext, options);
    ASSERT_EQ(::listen(full.GetFd(), 0), 0);
    const LoopbackPeer first = LoopbackPeer::ConnectTo(full.GetPort());
    const Program waiting(mContext, options);
    for (const auto& [time, program, seen] : {std::tuple(2999, &waiting, "module connecting\n.*\"since\":1000000,"),
                                              {2999, &refused, "module away\n.*\"since\":1002999,"},
                                              {3000, &waiting, "module away\n.*\"since\":1003000,"}}) {
        At(time);
        EXPECT_THAT(Taken(Sent("GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n"
                               "GET /api/state HTTP/1.0\r\nHost: localhost\r\n\r\n",
                               PortOf(*program))),
                    testing::ContainsRegex(seen));
    }
}

TEST_F(Site, ListensOnASocketThatItIsGiven)
{
    const LoopbackPeer given = LoopbackPeer::Bound("127.0.0.1", 0);
    Options options = MakeOptions();
    const auto said = [&](int descriptor) -> std::string {
        options.listenDescriptor = descriptor;
        boost::asio::io_context context;
        try {
            return Program(context, options).Greeting();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    EXPECT_EQ(said(::open("/dev/null", O_RDONLY)), "--listen-fd is no listening TCP socket");
    EXPECT_EQ(said(::socket(AF_UNIX, SOCK_STREAM, 0)), "--listen-fd is no listening TCP socket");
    EXPECT_EQ(said(::dup(given.GetFd())),
              "OrbWatch shows the module at 127.0.0.1:" + std::to_string(shell.Endpoint().port()) +
                  " on http://127.0.0.1:" + std::to_string(given.GetPort()) + "/");
}

TEST(Options, AreTakenAsTheyAreGiven)
{
    const std::pair<std::string, std::string> cases[] = {
        {"", "127.0.0.1:55555|127.0.0.1:8055|-1|{}|60|"},
        {"--shell 10.0.0.1:2 --listen [::1]:65535 --listen-fd 3 --host a --host b --refresh 1",
         "10.0.0.1:2|[::1]:65535|3|{ \"a\", \"b\" }|1|"},
        {"--refresh 3600", "127.0.0.1:55555|127.0.0.1:8055|-1|{}|3600|"},
        {"--refresh 3601", "2 OrbWatch: --refresh takes 1 to 3600 seconds; see --help\n"},
        {"--refresh 0", "2 OrbWatch: --refresh takes 1 to 3600 seconds; see --help\n"},
        {"--shell 10.0.0.1", "2 OrbWatch: --shell takes ADDRESS:PORT, not '10.0.0.1'; see --help\n"},
        {"--listen x:1", "2 OrbWatch: --listen takes ADDRESS:PORT, not 'x:1'; see --help\n"},
        {"--listen x::1]:1", "2 OrbWatch: --listen takes ADDRESS:PORT, not 'x::1]:1'; see --help\n"},
        {"--listen 1.2.3.4:65536", "2 OrbWatch: --listen takes ADDRESS:PORT, not '1.2.3.4:65536'; see --help\n"},
        {"--version", "0 OrbWatch 1.0.2452\n"},
    };
    const auto parsed = [](const std::string& line) {
        return ParsedOptions<watch::Options>(line, ParseOptions, [](const watch::Options& options) {
            return Joined(options.shell, options.listen, options.listenDescriptor.value_or(-1),
                          testing::PrintToString(options.hosts), options.refresh.count());
        });
    };
    for (const auto& [line, text] : cases)
        EXPECT_EQ(parsed(line), text) << line;
    EXPECT_THAT(parsed("--help --version"),
                StartsWith("0 Shows an OrbModule in a browser, from what its shell says:\n"));
}

} // namespace
