#pragma once

#include "Simulation/Stage/ByteStream.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace stage {

/// Name of the variable with the path of the control socket.
constexpr char ControlVariable[] = "ORB_SIM_CONTROL";

/// One sample of one endpoint of the audio DMA engine.
struct Sample
{
    unsigned int endpoint = 0;
    unsigned int sample = 0;

    bool operator==(const Sample& other) const { return endpoint == other.endpoint && sample == other.sample; }
    std::string Text() const;
};

/// The hardware side: speaks to the simulated FPGA of a running OrbModuleSim, past all of the module's own code.
class ControlChannel
{
public:
    explicit ControlChannel(const std::string& path);

    /// The lines of the answer, without the one that ends it.
    /// @throws NotSeen if the answer does not come; std::runtime_error with the text if it is an error.
    std::vector<std::string> Ask(const std::string& command, Milliseconds patience = Patience);
    /// For commands that answer with exactly one line.
    std::string AskOne(const std::string& command, Milliseconds patience = Patience);

    /// @param block "0003" and the like; @param offset in bytes.
    std::uint32_t Register(const std::string& block, unsigned int offset);
    /// Polls until the bits of the mask have this value: the board reports no change of a register.
    void WaitForRegister(const std::string& block, unsigned int offset, std::uint32_t mask, std::uint32_t value,
                         Milliseconds patience = Patience);
    /// What feeds a sink sample in the active table; nothing is silence.
    std::optional<Sample> Probe(Sample sink);
    unsigned long Syncs();
    void WaitForSyncs(unsigned long count, Milliseconds patience = Patience);
    /// Waits, activation by activation, until this source feeds the sink.
    void WaitForRoute(Sample sink, std::optional<Sample> source, Milliseconds patience = Patience);

private:
    ByteStream mStream;
};

} // namespace stage
