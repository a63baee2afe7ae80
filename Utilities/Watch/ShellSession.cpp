#include "Utilities/Watch/ShellSession.h"

#include "Utilities/Watch/Listings.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace watch {

namespace {

constexpr std::string_view GreetingEnd = "Type 'cmd --help' to find out more about 'cmd'.\n";
constexpr std::string_view Received = "CommandLine: Received ";
constexpr std::string_view Sent = "CommandLine: Sent ";
constexpr std::string_view SentEnd = "\n\r\n";
constexpr std::string_view StampShape = "[00/00/00 00:00:00] ";
constexpr std::string_view TailIsOff = "true\n";
/// The log's buffer holds so much of one message.
constexpr std::size_t MaxMessage = 4095;
constexpr std::string_view CutMark = "*** KorvoAudit buffer overflow, message truncated ***";

bool StartsWith(std::string_view text, std::string_view start)
{
    return text.substr(0, start.size()) == start;
}

bool IsStamp(std::string_view text)
{
    if (text.size() < StampShape.size()) return false;
    return std::equal(StampShape.begin(), StampShape.end(), text.begin(), [](char shape, char given) {
        return shape == '0' ? std::isdigit(static_cast<unsigned char>(given)) != 0 : shape == given;
    });
}

std::size_t FindStamp(std::string_view text, std::size_t from)
{
    for (std::size_t at = text.find('[', from); at != std::string_view::npos; at = text.find('[', at + 1))
        if (IsStamp(text.substr(at))) return at;
    return std::string_view::npos;
}

std::string_view WithoutStamp(std::string_view message)
{
    return IsStamp(message) ? message.substr(StampShape.size()) : message;
}

std::string_view TrimEnd(std::string_view text)
{
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    return last == std::string_view::npos ? std::string_view() : text.substr(0, last + 1);
}

/// The command that a "Received" line names; its arguments may follow.
std::optional<ShellCommand> CommandOf(std::string_view text)
{
    const auto* const found = std::find(std::begin(ShellCommandTexts), std::end(ShellCommandTexts), text);
    if (found == std::end(ShellCommandTexts)) return std::nullopt;
    return static_cast<ShellCommand>(found - std::begin(ShellCommandTexts));
}

/// Of a line that names a command without its arguments.
bool IsOwnName(std::string_view name)
{
    return name == "tail" || CommandOf(name);
}

} // namespace

bool IsListing(std::string_view text)
{
    if (StartsWith(text, Received)) return CommandOf(Trim(text.substr(Received.size()))).has_value();
    if (StartsWith(text, Sent)) {
        const std::string_view rest = text.substr(Sent.size());
        return IsOwnName(rest.substr(0, rest.find(' ')));
    }
    return StartsWith(text, "Local devices:") || StartsWith(text, "Remote devices:") || ParseDevice(text) ||
           ParsePatch(text);
}

bool ShellSession::Feed(std::string_view bytes)
{
    mBuffer += bytes;
    while (Step()) {
    }
    return mBuffer.size() <= MaxBuffer;
}

void ShellSession::OnQuiet()
{
    if (mMode != Mode::Log || mPending) return;
    Emit(mBuffer.size());
}

void ShellSession::Ask(ShellCommand command)
{
    mPending = command;
    mReply = Reply{command};
    mEvents.send(std::string(TextOf(command)) + "\n");
}

void ShellSession::AskWhole(ShellCommand command)
{
    mPending = command;
    mReply = Reply{command};
    SendWindow(TextOf(command));
}

void ShellSession::SendWindow(std::string_view command)
{
    mMode = Mode::AwaitDirect;
    std::string lines;
    for (const std::string_view line :
         {TextOf(ShellCommand::TailOff), command, TextOf(ShellCommand::Version), TextOf(ShellCommand::TailOn)})
        if (!line.empty()) lines += std::string(line) + '\n';
    mEvents.send(lines);
}

bool ShellSession::Step()
{
    switch (mMode) {
    case Mode::Greeting:
        return TakeGreeting();
    case Mode::Direct:
        return TakeDirect();
    case Mode::AwaitDirect:
        return TakeTailOff() || TakeMessage();
    default:
        return TakeMessage();
    }
}

bool ShellSession::TakeGreeting()
{
    const std::size_t end = mBuffer.find(GreetingEnd);
    if (end == std::string::npos) return false;
    mBuffer.erase(0, end + GreetingEnd.size());
    SendWindow({});
    return true;
}

/// Takes one message off the front if it is known to be whole: another begins after it, or it is the end of a reply.
bool ShellSession::TakeMessage()
{
    if (mBuffer.empty()) return false;
    const std::size_t next = FindStamp(mBuffer, std::max<std::size_t>(mSearched, 1));
    if (next != std::string::npos) {
        Emit(next);
        return true;
    }
    // A stamp may have begun at the end of what has come.
    mSearched = std::max(mBuffer.size(), StampShape.size()) - StampShape.size();
    if (!StartsWith(WithoutStamp(mBuffer), Sent)) return false;
    if (mBuffer.size() >= MaxMessage) {
        Emit(MaxMessage);
        return true;
    }
    const std::size_t end = mBuffer.find(SentEnd);
    if (end == std::string::npos) return false;
    Emit(end + SentEnd.size());
    return true;
}

/// The reply to "tail false": a separate line that is not part of a result in the log.
bool ShellSession::TakeTailOff()
{
    if (StartsWith(WithoutStamp(mBuffer), Sent)) return false;
    std::size_t at = 0;
    if (!StartsWith(mBuffer, TailIsOff)) {
        at = mBuffer.find("\n" + std::string(TailIsOff));
        if (at == std::string::npos) return false;
        ++at;
    }
    const std::size_t next = FindStamp(mBuffer, 1);
    // Whole messages go first, one of which may hold such a line.
    if (next < at) return false;
    Emit(at);
    mBuffer.erase(0, TailIsOff.size());
    mMode = Mode::Direct;
    return true;
}

bool ShellSession::TakeDirect()
{
    if (mVersion.empty()) {
        const std::size_t end = mBuffer.find('\n');
        if (end == std::string::npos) return false;
        mVersion = Trim(std::string_view(mBuffer).substr(0, end));
        mBuffer.erase(0, end + 1);
        mMode = Mode::Log;
        mReady = true;
        mEvents.ready();
        return true;
    }
    const std::string mark = mVersion + "\n";
    std::size_t end = 0;
    if (!StartsWith(mBuffer, mark)) {
        end = mBuffer.find("\n" + mark, mSearched);
        if (end == std::string::npos) {
            mSearched = std::max(mBuffer.size(), mark.size()) - mark.size();
            return false;
        }
        ++end;
    }
    const std::string result = mBuffer.substr(0, end);
    mBuffer.erase(0, end + mark.size());
    mSearched = 0;
    mMode = Mode::Log;
    // The log holds as much of it as fits a message.
    mReply.loggedBytes += std::min(result.size(), MaxMessage);
    Finish(result, false);
    return true;
}

void ShellSession::Emit(std::size_t length)
{
    const std::string message = mBuffer.substr(0, length);
    mBuffer.erase(0, length);
    mSearched = 0;
    const std::string_view text = WithoutStamp(message);
    OnMessage(text.size() < message.size() ? message.substr(1, StampShape.size() - 3) : std::string(), text, length);
}

void ShellSession::OnMessage(std::string stamp, std::string_view text, std::size_t length)
{
    // The mark of a cut message precedes it, without a stamp and without a line end.
    if (const std::size_t mark = text.rfind(CutMark); mark != std::string_view::npos) text = text.substr(0, mark);
    if (OnShellLine(text, length)) return;
    text = TrimEnd(text);
    if (!text.empty()) mEvents.message({std::move(stamp), std::string(text)});
}

/// @return whether the message belongs to a listing.
bool ShellSession::OnShellLine(std::string_view text, std::size_t length)
{
    if (!IsListing(text)) return false;
    mReply.loggedBytes += length;
    if (!mPending || mMode != Mode::Log) return true;
    const std::string_view name = TextOf(*mPending);
    if (StartsWith(text, Received)) {
        if (Trim(text.substr(Received.size())) == name) mReply.records.clear();
    } else if (!StartsWith(text, Sent)) {
        mReply.records.emplace_back(text);
    } else if (const std::string head = std::string(Sent) + std::string(name) + " Result\r\n"; StartsWith(text, head)) {
        const bool whole = text.substr(text.size() - SentEnd.size()) == SentEnd;
        Finish(text.substr(head.size()), !whole);
    }
    return true;
}

void ShellSession::Finish(std::string_view result, bool cut)
{
    mPending.reset();
    Reply reply = std::exchange(mReply, Reply{});
    reply.result = result;
    reply.cut = cut;
    mEvents.reply(std::move(reply));
}

} // namespace watch
