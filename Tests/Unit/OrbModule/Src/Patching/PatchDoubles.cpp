#include "Tests/Unit/OrbModule/Src/Patching/PatchDoubles.h"

#include "Common/KLV/Commands/AudioPatchFailedCmd.h"
#include "Common/KLV/Commands/AudioPatchRetryForHidCmd.h"
#include "Common/KLV/Commands/OstrelPingCmd.h"
#include "Common/KLV/Commands/PatchSucessfulCmd.h"
#include "Common/KLV/Commands/PortBitmapCmd.h"
#include "Common/KLV/Commands/RouterPatchAudio.h"

#include <sstream>

namespace {

std::string Text(const IoPort& port)
{
    std::ostringstream out;
    out << std::hex << std::uint32_t{port.GetHid()} << std::dec << '/' << port.GetIndex();
    return out.str();
}

/// "1[4 5]"
std::string Text(UINT8GIGEPORT port, const std::vector<std::uint32_t>& slots)
{
    std::string text = std::to_string(port) + '[';
    for (const std::uint32_t slot : slots) {
        if (text.back() != '[') text += ' ';
        text += std::to_string(slot);
    }
    return text + ']';
}

std::string Text(const Routing::GigeAndSlots& link)
{
    return Text(link.port, link.slots);
}

std::string Text(const DeskCommand& command)
{
    std::ostringstream out;
    if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
        out << (patch->GetMake() ? "make " : "break ") << Text(patch->GetSource().GetPort()) << " at "
            << Text(patch->GetSource().GetLink(), patch->GetSource().GetSlots()) << " to " << Text(patch->GetDest())
            << " orig " << Text(patch->GetOrig()) << (patch->GetUseMe() ? " use-me" : "");
    } else if (const auto* done = dynamic_cast<const PatchSucessfulCmd*>(&command)) {
        out << "success " << Text(done->GetDest());
    } else if (const auto* failed = dynamic_cast<const AudioPatchFailedCmd*>(&command)) {
        out << "failed " << Text(failed->GetSource()) << " to " << Text(failed->GetDest());
    } else if (const auto* retry = dynamic_cast<const AudioPatchRetryForHidCmd*>(&command)) {
        out << "retry " << std::hex << std::uint32_t{retry->GetHid()};
    } else if (const auto* bitmap = dynamic_cast<const PortBitmapCmd*>(&command)) {
        out << "bitmap " << std::hex << std::uint32_t{bitmap->GetHid()} << std::dec;
        for (const auto& port : bitmap->GetEntries()) {
            out << ' ' << port.first << (port.second.secondary ? "sec" : "pri");
        }
    } else if (const auto* ping = dynamic_cast<const OstrelPingCmd*>(&command)) {
        out << "ping " << ping->GetName() << ' ' << ping->GetPatchCount() << ' ' << ping->GetTotalDests();
    } else {
        out << "something else";
    }
    return out.str();
}

} // namespace

bool FakeComms::SendCmd(UINT8GIGEPORT port, const DeskCommand& command, StreamType type, std::uint32_t address)
{
    std::string where = std::to_string(port);
    if (type == StreamType::MASTER_LINK) where += " master";
    if (type == StreamType::SLAVE_LINK) where += " slave " + AddressText(address);
    mDeeds.push_back("send " + where + ": " + Text(command));
    return true;
}

void FakePatcher::ProcessPatchUnpatch(const LinkPatch& patch, bool make)
{
    mDeeds.push_back((make ? "route " + Text(patch.source) + " to " : std::string("silence ")) +
                     Text(patch.destination));
}

void FakePatcher::ProcessUnpatches(const std::vector<LinkPatch>& patches)
{
    std::string text = "drop";
    for (const LinkPatch& patch : patches)
        text += ' ' + Text(patch.destination);
    mDeeds.push_back(text);
}
