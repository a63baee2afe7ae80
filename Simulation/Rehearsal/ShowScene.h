#pragma once

#include "Simulation/Rehearsal/NetworkScene.h"
#include "Simulation/Rehearsal/Rehearsal.h"
#include "Simulation/Rehearsal/RoutingScene.h"

#include <string>
#include <vector>

namespace rehearsal {

/// The third scene: a show on air. Patches come over the network, go their ways through the FPGA, and outlive the loss
/// of a cable.
class ShowScene
{
public:
    ShowScene(RoutingScene& routing, NetworkScene& network, stage::Milliseconds patience)
        : mRouting(routing), mNetwork(network), mPatience(patience)
    {}

    std::vector<Step> Steps();

private:
    std::string RouterPatchFails();
    std::string RouterPatchSucceeds();
    std::string PatchMicrophone();
    std::string ReserveSecond();
    std::string LoseCable();
    std::string CableReturns();
    std::string PatchToBox();
    std::string PatchBehindHub();
    std::string PingHub();
    /// Has the store of patches written to the log and waits for a line of it.
    void ExpectInStore(const std::string& text);

    RoutingScene& mRouting;
    NetworkScene& mNetwork;
    stage::Milliseconds mPatience;
    stage::LogFile mLog;
};

} // namespace rehearsal
