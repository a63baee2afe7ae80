#include "Simulation/Stage/UnitSetup.h"

#include "Simulation/Stage/NetworkNamespace.h"

namespace stage {

const char* LinkNamespace(unsigned int link)
{
    return link == 0 ? PrimaryNamespace : SecondaryNamespace;
}

std::string PlugLine(unsigned int link, unsigned int rack)
{
    return "plug " + std::to_string(link) + " " + std::to_string(2 * rack) + " 0";
}

std::unique_ptr<Peer> StartOrbRouter(const std::vector<std::string>& options, Milliseconds patience, unsigned int rack)
{
    const auto hid = [rack](unsigned int device) { return std::to_string(rack << 16 | device); };
    std::vector<std::string> all{"--hid", hid(0x8000), "--io-hid", hid(1), "--do", "card 0 Mic in=0-15 out=0-15"};
    all.insert(all.end(), options.begin(), options.end());
    all.push_back("--appear");
    return std::make_unique<Peer>("orb", UnitNamespace, all, patience);
}

std::unique_ptr<Peer> StartUpdateService(const std::string& line, Milliseconds patience)
{
    std::vector<std::string> options;
    if (!line.empty()) options = {"--do", line};
    options.push_back("--appear");
    return std::make_unique<Peer>("update", UnitNamespace, options, patience);
}

std::unique_ptr<Peer> StartNeighbour(unsigned int link, const Neighbour& neighbour, Milliseconds patience,
                                     unsigned int moduleRack)
{
    std::vector<std::string> options{"--hid",         neighbour.hid,
                                     "--module-rack", std::to_string(moduleRack),
                                     "--rack",        std::to_string(neighbour.rack),
                                     "--link",        std::to_string(link)};
    for (const std::string& line : neighbour.lines)
        options.insert(options.end(), {"--do", line});
    return std::make_unique<Peer>(neighbour.kind, LinkNamespace(link), options, patience);
}

} // namespace stage
