#pragma once

#include "Simulation/Rehearsal/Rehearsal.h"
#include "Simulation/Stage/ControlChannel.h"
#include "Simulation/Stage/Module.h"
#include "Simulation/Stage/ShellClient.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace rehearsal {

/// The first scene: the module comes up, shows that it lives, and an engineer routes audio by hand.
class RoutingScene
{
public:
    RoutingScene(stage::ModuleSetup setup, stage::Milliseconds patience) : mSetup(std::move(setup)), mPatience(patience)
    {}

    /// In order; the module runs from the first of them on. They use this object.
    std::vector<Step> Steps();
    /// On a terminal, before the last step: the shell is the user's for as long as he likes.
    Step HandOver();
    /// The last step of a rehearsal.
    Step Farewell();
    /// The running module, for the scenes that follow.
    stage::Module& GetModule() { return *mModule; }
    stage::ControlChannel& GetControl() { return *mControl; }
    stage::ShellClient& GetShell() { return *mShell; }

private:
    std::string Start();
    std::string SeeHeartbeats();
    std::string OpenShell();
    std::string Patch();
    std::string Mute();
    std::string Clear();
    std::string ShowStatus();
    std::string Stop();

    stage::ModuleSetup mSetup;
    stage::Milliseconds mPatience;
    bool mQuitByHand = false;
    std::unique_ptr<stage::Module> mModule;
    std::optional<stage::ControlChannel> mControl;
    std::optional<stage::ShellClient> mShell;
};

} // namespace rehearsal
