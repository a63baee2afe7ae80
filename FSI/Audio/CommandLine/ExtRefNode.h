#pragma once

#include "FSI/Audio/ExternalClockManager.h"
#include "FSI/Audio/ExternalClockSource.h"
#include "FSI/Core/DeviceRegistryView.h"
#include "Utilities/CommandLine/CommandNode.h"

#include <functional>
#include <memory>
#include <string>

/// The shell node "clock": shows and overrides the choice of the audio clock. Names of clocks are their aliases in the
/// registry at the time the node is built. Main thread, as the shell; changes take effect after the command's result.
class ExtRefNode : public cmd::Node
{
public:
    /// @param registry may be null: then no clock has a name
    ExtRefNode(const std::shared_ptr<audio::ExternalClockManager>& manager, const fsi::DeviceRegistry* registry);

private:
    using Source = audio::ExternalClockSource;

    // The commands. Those that name a source answer with an error text, or with nothing.
    std::string Sources() const { return mSources; }
    std::string Active() const;
    std::string Enable(const std::string& name);
    std::string Disable(const std::string& name);
    void UseInternal(bool internal);
    std::string SetPllSource(const std::string& name);
    std::string Status() const;

    /// Does something with the source of that name. The error text if there is none.
    std::string WithSource(const std::string& name, const std::function<void(const Source&)>& work) const;

    const fsi::DeviceRegistryView<Source> mView;
    const std::shared_ptr<audio::ExternalClockManager> mCtx;
    /// All names, each with a blank after it.
    std::string mSources;
};
