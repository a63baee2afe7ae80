#pragma once

#include "Utilities/Watch/ShellCommands.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace watch {

/// A message of the module's log: what begins at one stamp and ends before the next.
struct LogMessage
{
    /// "25/11/26 09:43:38", empty if the message has none.
    std::string stamp{};
    /// Without the stamp, and without blanks and line ends at its end.
    std::string text{};
};

struct Reply
{
    ShellCommand command = ShellCommand::Version;
    /// The result of the command.
    std::string result{};
    /// The records of a command that writes them to the log.
    std::vector<std::string> records{};
    /// The log has cut the result off: AskWhole gives all of it.
    bool cut{};
    /// How many bytes the module has logged for it, as far as it was seen.
    std::size_t loggedBytes = 0;
};

/// One session with the shell, as bytes in and bytes out, without socket, clock or thread.
///
/// The connection tails the log, so that every line of it arrives here. Replies are read from the log as well. The log
/// cuts a message at 4 KiB, so a longer result is asked for again with the tail off for the length of that one command;
/// lines that the module logs in between are not seen. The version, asked for in the same way, ends such a reply.
class ShellSession
{
public:
    /// More than this without the end of a reply breaks the session.
    static constexpr std::size_t MaxBuffer = 8 * 1024 * 1024;

    struct Events
    {
        /// Writes to the shell.
        std::function<void(const std::string& bytes)> send;
        /// A message of the log that is no part of a listing.
        std::function<void(LogMessage message)> message;
        std::function<void(Reply reply)> reply;
        /// The greeting and the version are known; commands may be asked.
        std::function<void()> ready;
    };

    explicit ShellSession(Events events) : mEvents(std::move(events)) {}

    /// @return false if the shell has sent what cannot be a conversation; the session is then of no more use.
    bool Feed(std::string_view bytes);
    /// No input for a while: a held-back message that might continue is taken as complete.
    void OnQuiet();

    /// One command at a time.
    bool IsBusy() const { return mPending.has_value(); }
    void Ask(ShellCommand command);
    /// With the tail off during the command. Not for commands that write to the log.
    void AskWhole(ShellCommand command);

    bool IsReady() const { return mReady; }
    /// "OrbModule 1.0.2452".
    const std::string& Version() const { return mVersion; }

private:
    enum class Mode { Greeting, Log, AwaitDirect, Direct };

    bool Step();
    bool TakeGreeting();
    bool TakeMessage();
    bool TakeTailOff();
    bool TakeDirect();
    void SendWindow(std::string_view command);
    void Emit(std::size_t length);
    void OnMessage(std::string stamp, std::string_view text, std::size_t length);
    bool OnShellLine(std::string_view text, std::size_t length);
    void Finish(std::string_view result, bool cut);

    Events mEvents;
    Mode mMode = Mode::Greeting;
    std::string mBuffer;
    /// Where the search for the next stamp continues.
    std::size_t mSearched{};
    std::string mVersion;
    bool mReady = false;
    std::optional<ShellCommand> mPending;
    Reply mReply;
};

/// Whether a message of the log belongs to a listing, of this or of another client, and says nothing new.
bool IsListing(std::string_view text);

} // namespace watch
