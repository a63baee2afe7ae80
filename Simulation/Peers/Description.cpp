#include "Simulation/Peers/Description.h"

#include "Simulation/Peers/Messages.h"

namespace peers {

namespace {

constexpr std::uint32_t LastCard = 0xFF;

} // namespace

BoxKind ToBoxKind(const std::string& word)
{
    if (word == "fixed") return BoxKind::Fixed;
    if (word == "modular") return BoxKind::Modular;
    if (word == "aoip") return BoxKind::AoIP;
    if (word == "module") return BoxKind::Module;
    throw LineError("'" + word + "' is no kind of box");
}

std::uint32_t ToRemoteType(BoxKind kind)
{
    switch (kind) {
    case BoxKind::Fixed:
        return messages::Fixed;
    case BoxKind::Modular:
        return messages::Modular;
    case BoxKind::AoIP:
        return messages::AoIP;
    case BoxKind::Module:
        break;
    }
    return messages::Module;
}

bool Description::Set(const Line& line)
{
    if (line.GetVerb() == "card") {
        const std::uint32_t slot = line.Number(0);
        if (mKind == BoxKind::Modular) {
            if (slot >= LastCard) throw LineError("no slot " + line.Word(0));
            mCards[slot] = {line.Word(1), ToNumbers(line.Named("in", std::string())),
                            ToNumbers(line.Named("out", std::string()))};
        } else {
            if (slot >= mModels.size()) throw LineError("no slot " + line.Word(0));
            mModels[slot] = line.Word(1);
        }
    } else if (line.GetVerb() == "ports") {
        mInputs = line.Number(0);
        mOutputs = line.Number(1);
    } else if (line.GetVerb() == "rate") {
        mRate = line.Number(0);
        mRates = line.Count() > 1 ? ToNumbers(line.Word(1)) : std::vector<std::uint32_t>{*mRate};
    } else {
        return false;
    }
    return true;
}

std::string Description::GetHelp()
{
    return "card SLOT MODEL (fixed, aoip) | card SLOT NAME [in=LIST] [out=LIST] (modular) | ports IN OUT (module)\n"
           "rate RATE [RATES]\n";
}

std::vector<Command> Description::ToCommands(std::uint32_t hid) const
{
    std::vector<Command> commands;
    if (mRate) commands.push_back(messages::IoSampleCapabilities(hid, *mRate, mRates));
    switch (mKind) {
    case BoxKind::Fixed:
        commands.push_back(messages::IoInfo(hid, 0, mModels));
        break;
    case BoxKind::AoIP:
        commands.push_back(messages::IoInfo(hid, messages::AoIP, mModels));
        break;
    case BoxKind::Module:
        commands.push_back(messages::IoInfoK2Mod(hid, mInputs, mOutputs));
        break;
    case BoxKind::Modular:
        for (const auto& [slot, card] : mCards)
            commands.push_back(messages::IoInfoCard(hid, slot, card.name, card.inputs, card.outputs));
        commands.push_back(messages::IoInfoCard(hid, LastCard, "", {}, {}));
        break;
    }
    return commands;
}

} // namespace peers
