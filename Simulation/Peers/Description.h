#pragma once

#include "Simulation/Peers/Line.h"
#include "Simulation/Peers/Wire.h"

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace peers {

enum class BoxKind { Fixed, Modular, AoIP, Module };
/// Throws LineError for a word that names no kind.
BoxKind ToBoxKind(const std::string& word);
/// The type that update commands give the kind.
std::uint32_t ToRemoteType(BoxKind kind);

/// What an I/O box says of itself: its cards or its counts of ports, and its sample rates.
class Description
{
public:
    explicit Description(BoxKind kind) : mKind(kind) {}

    /// "card SLOT MODEL" of a fixed format or AoIP box, "card SLOT NAME in=LIST out=LIST" of a modular one,
    /// "ports IN OUT" of a module, "rate RATE [RATES]". False for another verb.
    bool Set(const Line& line);
    static std::string GetHelp();

    BoxKind GetKind() const { return mKind; }
    std::uint32_t GetRate() const { return mRate.value_or(0); }
    const std::vector<std::uint32_t>& GetRates() const { return mRates; }
    /// The commands that describe the box; the rates come first, if any have been set.
    std::vector<Command> ToCommands(std::uint32_t hid) const;

private:
    struct Card
    {
        std::string name;
        std::vector<std::uint32_t> inputs;
        std::vector<std::uint32_t> outputs;
    };

    BoxKind mKind;
    std::array<std::string, 5> mModels;
    std::map<std::uint32_t, Card> mCards;
    std::uint32_t mInputs = 0;
    std::uint32_t mOutputs = 0;
    std::optional<std::uint32_t> mRate;
    std::vector<std::uint32_t> mRates;
};

} // namespace peers
