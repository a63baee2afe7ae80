#include "Tests/Unit/OrbModule/Src/Patching/PatchDoubles.h"

#include "Common/KLV/Commands/PatchCommands.h"

#include <sstream>

namespace patching {

namespace {

const std::map<std::string, Hid>& Names()
{
    static const std::map<std::string, Hid> names{{"unit", MakeLinkHid(Unit)},
                                                  {"desk", Desk},
                                                  {"box", Box},
                                                  {"far", Far},
                                                  {"far2", Far2},
                                                  {"far3", Far3},
                                                  {"node", Node},
                                                  {"zero", Zero},
                                                  {"zero-node", MakeNodeHid(Zero)}};
    return names;
}

std::string Text(const IoPort& port)
{
    return NameOf(port.GetHid()) + '/' + std::to_string(port.GetIndex());
}

std::string Text(const PortBitmapCmd& bitmap)
{
    std::ostringstream out;
    const PortBitmapBlock& block = bitmap.GetBlock();
    out << "bitmap " << NameOf(bitmap.GetHid()) << std::hex;
    if (block.word1 | block.word2 | block.word3 | block.word4) out << " block " << block.word1 << ' ' << block.word3;
    for (const auto& [port, entry] : bitmap.GetEntries()) {
        out << ' ' << std::dec << port << (entry.secondary ? "sec" : "pri");
        if (entry.word != 0xFFFFFFFF) out << " word " << entry.word;
    }
    return out.str();
}

std::string Text(const DeskCommand& command)
{
    if (const auto* patch = dynamic_cast<const RouterPatchAudio*>(&command)) {
        const PatchSource& source = patch->GetSource();
        return (patch->GetMake() ? "make " : "break ") + Text(source.GetPort()) + " at " +
               TextOf({source.GetLink(), source.GetSlots()}) + " to " + Text(patch->GetDest()) + " orig " +
               Text(patch->GetOrig()) + (patch->GetUseMe() ? " use-me" : "");
    }
    if (const auto* done = dynamic_cast<const PatchSucessfulCmd*>(&command)) return "success " + Text(done->GetDest());
    if (const auto* failed = dynamic_cast<const AudioPatchFailedCmd*>(&command)) {
        return "failed " + Text(failed->GetSource()) + " to " + Text(failed->GetDest());
    }
    if (const auto* retry = dynamic_cast<const AudioPatchRetryForHidCmd*>(&command)) {
        return "retry " + NameOf(retry->GetHid());
    }
    if (const auto* ping = dynamic_cast<const OstrelPingCmd*>(&command)) {
        return "ping " + ping->GetName() + ' ' + std::to_string(ping->GetPatchCount()) + ' ' +
               std::to_string(ping->GetTotalDests());
    }
    if (const auto* bitmap = dynamic_cast<const PortBitmapCmd*>(&command)) return Text(*bitmap);
    return "something else";
}

} // namespace

std::string NameOf(Hid hid)
{
    for (const auto& [name, known] : Names()) {
        if (known == hid) return name;
    }
    std::ostringstream out;
    out << std::hex << std::uint32_t{hid};
    return out.str();
}

Hid HidOf(const std::string& name)
{
    const auto known = Names().find(name);
    return known == Names().end() ? Hid(0xC0090001) : known->second;
}

std::string TextOf(const Routing::GigeAndSlots& link)
{
    std::string text = std::to_string(link.port) + '[';
    for (const std::uint32_t slot : link.slots) {
        if (text.back() != '[') text += ' ';
        text += std::to_string(slot);
    }
    return text + ']';
}

DevicePorts FakeDevices::GetDevicePorts(Hid hid, Routing::PortsEnum port) const
{
    const auto device = devices.find(hid);
    if (device == devices.end()) return {};
    if (IsOwnDevice(hid)) return {Routing::ORB_PORT, 0};
    // The real directory knows but two links.
    const Routing::PortsEnum link = IsPrimaryPort(port) ? Routing::PRIMARY_PORT : Routing::SECONDARY_PORT;
    if (device->second.remote[link] == UNKNOWN_GIGE_PORT) return {};
    return {link, device->second.remote[link]};
}

bool FakeComms::Send(const StreamName& stream, const DeskCommand& command)
{
    std::ostringstream out;
    out << "send " << unsigned{stream.port};
    if (stream.type == StreamType::MASTER_LINK) {
        out << " master";
    } else if (stream.type == StreamType::SLAVE_LINK) {
        out << " slave " << AddressText(stream.address);
    } else if (stream.type != StreamType::LOCAL_LINK) {
        out << " on a stream of another type";
    }
    mDeeds.push_back(out.str() + ": " + Text(command));
    return true;
}

void FakePatcher::ProcessPatchUnpatch(const LinkPatch& patch, bool make)
{
    mDeeds.push_back((make ? "route " + TextOf(patch.source) + " to " : std::string("silence ")) +
                     TextOf(patch.destination));
}

void FakePatcher::ProcessUnpatches(const std::vector<LinkPatch>& patches)
{
    std::string text = "drop";
    for (const LinkPatch& patch : patches)
        text += ' ' + TextOf(patch.destination);
    mDeeds.push_back(text);
}

} // namespace patching
