#include "FSI/Audio/CommandLine/ExtRefNode.h"

#include "MiscSource/FatalAssert.h"
#include "Utilities/CommandLine/Action.h"

#include <sstream>

namespace {

using cmd::action::MakeAction;

constexpr const char* SourcesHelp = "List all potential clock sources.";
constexpr const char* ActiveHelp = "Show the active sync source";
constexpr const char* EnableHelp = "Consider SRC in clock selection. Use 'clock/sources' to list valid SRC values.";
constexpr const char* DisableHelp =
    "Don't consider SRC in clock selection. Use 'clock/sources' to list valid SRC values.";
constexpr const char* UseInternalHelp = "Use the internal clock, irrespective of other clock availability.";
constexpr const char* PhaseFreezeHelp = "Whether the phase adjustment loop used during internal frame sync should be "
                                        "disabled. False by default.";
constexpr const char* SetPllSourceHelp = "Select the external PLL source. This disables the auto-select algorithm; "
                                         "use auto_pll_select to re-enable.";
constexpr const char* AutoPllSelectHelp = "Enable the PLL selection algorithm; this is the default mode.";
constexpr const char* MeasurementRangeHelp =
    "Set the number of 'ticks' allowed before selected PLL source timeout. Hardware sets the default range 0-4096. "
    "Units are the number of 27MHz clocks counted over a 65 frame period.";
constexpr const char* StatusHelp = "Display current PLL clock status.";

} // namespace

ExtRefNode::ExtRefNode(const std::shared_ptr<audio::ExternalClockManager>& manager, const fsi::DeviceRegistry* registry)
    : mView(registry), mCtx(manager)
{
    FATAL_ASSERT(mCtx, "The ExtRef command line node requires a valid context");
    for (const auto& entry : mView)
        mSources += entry.first + " ";
    using Fsi = audio::ExternalReferenceFsi;
    Fsi* const fsi = mCtx->GetFsi().get();
    Add("clock",
        {MakeAction("sources", this, &ExtRefNode::Sources, SourcesHelp),
         MakeAction("active", this, &ExtRefNode::Active, ActiveHelp),
         MakeAction("enable", this, &ExtRefNode::Enable, EnableHelp),
         MakeAction("disable", this, &ExtRefNode::Disable, DisableHelp),
         MakeAction("use_internal", this, &ExtRefNode::UseInternal, UseInternalHelp),
         MakeAction("enable_phase_freeze", fsi, &Fsi::SetPhaseFreeze, PhaseFreezeHelp),
         MakeAction("set_pll_source", this, &ExtRefNode::SetPllSource, SetPllSourceHelp),
         MakeAction("auto_pll_select", mCtx.get(), &audio::ExternalClockManager::EnableAutoSelect, AutoPllSelectHelp),
         MakeAction("set_measurement_range", fsi, &Fsi::SetMeasurementRange, MeasurementRangeHelp),
         MakeAction("status", this, &ExtRefNode::Status, StatusHelp)});
}

std::string ExtRefNode::Enable(const std::string& name)
{
    return WithSource(name, [this](const Source& source) { mCtx->EnableClockSource(source); });
}

std::string ExtRefNode::Disable(const std::string& name)
{
    return WithSource(name, [this](const Source& source) { mCtx->DisableClockSource(source); });
}

void ExtRefNode::UseInternal(bool internal)
{
    if (internal)
        mCtx->UseInternalClock();
    else
        mCtx->EnableAutoSelect();
}

std::string ExtRefNode::SetPllSource(const std::string& name)
{
    return WithSource(name, [this](const Source& source) { mCtx->ForcePllSource(source); });
}

std::string ExtRefNode::Active() const
{
    const Source::Id selected = mCtx->GetSelected();
    if (selected == 0) return "Internal";
    for (const auto& entry : mView)
        if (entry.second->GetId() == selected) return entry.first;
    return "Unknown";
}

std::string ExtRefNode::Status() const
{
    std::ostringstream text;
    text << "Clock Ids: ";
    for (const auto& entry : mView)
        text << entry.first << " (" << entry.second->GetId() << ") ";
    text << "Internal (0)\n\n" << *mCtx;
    return text.str();
}

std::string ExtRefNode::WithSource(const std::string& name, const std::function<void(const Source&)>& work) const
{
    const std::shared_ptr<Source> source = mView.Get(name);
    if (!source) return "Error: Unknown clock '" + name + "'";
    work(*source);
    return {};
}
