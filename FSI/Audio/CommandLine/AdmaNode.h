#pragma once

#include "FSI/Audio/AudioDmaEndpoint.h"
#include "FSI/Audio/AudioDmaManager.h"
#include "Utilities/CommandLine/CommandNode.h"

#include <functional>
#include <memory>
#include <string>

/// The shell node "adma": shows and changes the ADMA routes and the transaction table. Names of endpoints are their
/// aliases in the manager's view. Lives on the main thread, as the shell does.
class AdmaNode : public cmd::Node
{
public:
    explicit AdmaNode(const std::shared_ptr<audio::AudioDmaManager>& manager);

private:
    using Endpoint = std::shared_ptr<audio::AudioDmaEndpoint>;

    // The commands. Those that change something answer with an error text, or with nothing.
    std::string Status() const;
    std::string Transactions(unsigned first, unsigned last) const;
    std::string Links() const;
    std::string Patch(const std::string& source, const std::string& sink);
    std::string PatchSamples(const std::string& source, const std::string& sourceRange, const std::string& sink,
                             const std::string& sinkRange);
    std::string ClearFrom(const std::string& source);
    std::string ClearTo(const std::string& sink);
    void ClearAll();
    void ResetFsi();

    /// Does something with two endpoints of these names. The error text if there is no such source or sink.
    std::string WithEnds(const std::string& source, const std::string& sink,
                         const std::function<std::string(const Endpoint&, const Endpoint&)>& work) const;
    /// Null if the name is not that of a source or sink.
    Endpoint FindSource(const std::string& name) const;
    Endpoint FindSink(const std::string& name) const;

    const std::shared_ptr<audio::AudioDmaManager> mCtx;
};
