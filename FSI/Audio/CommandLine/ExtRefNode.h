#pragma once

#include "FSI/Audio/ExternalClockManager.h"
#include "FSI/Audio/ExternalClockSource.h"
#include "FSI/Core/DeviceRegistryView.h"
#include "Utilities/CommandLine/CommandNode.h"

#include <functional>
#include <memory>
#include <string>

/// The shell node "clock": shows and overrides the choice of the audio clock. Names of clocks are their aliases in
/// the registry, as it stands when the node is built. Lives on the main thread, as the shell does; what changes the
/// choice takes effect after the command's result has gone out.
class ExtRefNode : public cmd::Node
{
public:
    /// @param registry may be null: there are no clocks to name then
    ExtRefNode(const std::shared_ptr<audio::ExternalClockManager>& manager, const fsi::DeviceRegistry* registry);

private:
    using Source = audio::ExternalClockSource;

    std::string Active() const;
    std::string Status() const;
    /// Does something with the source of that name. The error text if there is none.
    std::string WithSource(const std::string& name, const std::function<void(const Source&)>& work) const;

    const fsi::DeviceRegistryView<Source> mView;
    const std::shared_ptr<audio::ExternalClockManager> mCtx;
};
