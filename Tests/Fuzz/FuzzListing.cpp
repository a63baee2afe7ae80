// What a shell may send to OrbWatch: a conversation, and each listing by itself.

#include "Tests/Fuzz/Require.h"
#include "Utilities/Watch/Metrics.h"
#include "Utilities/Watch/Picture.h"

#include <cstdint>
#include <string>

using namespace watch;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    Picture picture("shell");
    picture.OnContact(Contact::Live, 1);
    ShellSession session({[](const std::string&) {},
                          [&picture](LogMessage message) { picture.OnMessage(std::move(message), 1); },
                          [&picture](const Reply& reply) { picture.OnReply(reply); }, [] {}});
    // The first byte says what is under way; in pieces, since so it comes.
    const std::size_t choice = size == 0 ? 0 : data[0] % (2 * PictureCommands.size());
    if (choice >= PictureCommands.size()) {
        session.AskWhole(PictureCommands[choice - PictureCommands.size()]);
    }
    const std::size_t middle = size / 2;
    session.Feed(std::string_view(text).substr(0, middle));
    if (choice < PictureCommands.size() && session.IsReady() && !session.IsBusy()) session.Ask(PictureCommands[choice]);
    session.Feed(std::string_view(text).substr(middle));
    session.OnQuiet();

    Reply reply;
    reply.result = text;
    reply.records = {text};
    for (const ShellCommand command : PictureCommands) {
        reply.command = command;
        picture.OnReply(reply);
    }
    picture.OnMessage({"", text}, 1);
    Require(!picture.Json(1).empty() && !MetricsText(picture, {}, 1).empty());
    return 0;
}
