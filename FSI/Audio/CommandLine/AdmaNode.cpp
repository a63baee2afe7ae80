#include "FSI/Audio/CommandLine/AdmaNode.h"

#include "FSI/Audio/CommandLine/RouteRuns.h"
#include "FSI/Audio/CommandLine/SampleRange.h"
#include "FSI/Core/HostFsi.h"
#include "MiscSource/FatalAssert.h"
#include "Utilities/CommandLine/Action.h"

#include <algorithm>
#include <cstdint>
#include <iomanip>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

namespace {

using audio::AudioDmaTransaction;
using cmd::action::MakeAction;

constexpr const char* StatusHelp = "Show the current (or pending if not yet sync'd) audio routes.";
constexpr const char* TransactionsHelp =
    "Show the requested portion of the transaction table. Indices start at zero."
    "It isn't possible to read the table from hardware: this is the application's\n"
    "last known sync state with the FSI.\n\n"
    "Each transaction is a 32 bit value with source and destination positioned so:\n"
    " [08:00] - DST sample \n"
    " [11:09] - DST address\n"
    " [20:12] - SRC sample \n"
    " [23:21] - SRC address\n"
    " [31:24] - Unused";
constexpr const char* LinksHelp =
    "List all ADMA endpoints (valid 'patch' inputs) and their associated id."
    "The transaction range values can be passed to 'adma/transactions' to see current transaction values.";
constexpr const char* PatchHelp = "Patch audio routes between SRC and SNK. Changes are synchronised immediately. "
                                  "Use 'adma/links' to list valid SRC and SNK values.";
constexpr const char* Patch2Help = "Patch audio routes between SRCs and SNKs."
                                   "The sample ranges can be specified as:\n"
                                   " - A comma-separated list: 0,1,2,3,4,5\n"
                                   " - An inclusive range:     10-15\n"
                                   " - A combination of both:  20,21,30-40,90,91\n\n"
                                   "Example routing the first 10 samples of 'k1' to the first 10 of 'k2':\n"
                                   " k1 0-9 k2 0-9\n\n"
                                   "The number of sources and sinks must match (note duplicates are ignored and the\n"
                                   "given order must be ascending).\n"
                                   "Changes are synchronised immediately. Use 'adma/links' to list valid SRC and SNK\n"
                                   "values.";
constexpr const char* ClearFromHelp = "Clear audio routed from SRC. Changes are synchronised immediately. "
                                      "Use 'adma/links' to list valid SRC values.";
constexpr const char* ClearToHelp = "Clear audio routed to SNK. Changes are synchronised immediately. "
                                    "Use 'adma/links' to list valid SNK values.";
constexpr const char* ClearAllHelp =
    "Clear all active audio routes. Changes are synchronised immediately.\n"
    "This causes silence to be transmitted to all channels of all registered SNK endpoints.";
constexpr const char* ResetFsiHelp =
    "Reset the FSI ADMA table. Changes are synchronised immediately.\n\n"
    "Note: This bypasses the ADMA manager, directly forcing zero as every transaction table entry.\n"
    "      The manager's source transactions are then cleared, as if calling clear_all.";
constexpr const char* SyncHelp = "Re-send the current transaction state to the FSI.";
constexpr const char* SyncAckHelp = "Simulate receipt of the 'end of sync' interrupt from the FSI";
constexpr const char* SyncingHelp = "Whether a sync operation is in progress.";
constexpr const char* MuteHelp = "Force, or clear, software audio mute.";
constexpr const char* MuteOnPllLossHelp = "Whether the loss of PLL lock should mute the audio. True by default.";

/// Aliases by the address of the endpoint.
using Names = std::map<std::uint16_t, std::string>;

std::string NameOf(const Names& names, std::uint16_t address)
{
    const auto name = names.find(address);
    return (name == names.end() ? std::string() : name->second) + ": ";
}

std::string RangeText(std::size_t first, std::size_t last)
{
    return std::to_string(first) + "-" + std::to_string(last);
}

std::string SourceSamples(const audio::RouteRun& run)
{
    const std::uint16_t first = audio::GetSample(run.firstSource);
    const std::uint16_t last = audio::GetSample(run.lastSource);
    if (run.length == 1) return std::to_string(first);
    return last == 0 ? "0" : RangeText(first, last);
}

std::string SinkSamples(const audio::RouteRun& run)
{
    return run.length == 1 ? std::to_string(run.sinkOffset)
                           : RangeText(run.sinkOffset, run.sinkOffset + run.length - 1);
}

std::string SourceError(const std::string& name)
{
    return "Error: Unknown or invalid source '" + name + "'";
}

std::string SinkError(const std::string& name)
{
    return "Error: Unknown or invalid sink '" + name + "'";
}

std::string RangeError(const std::string& range, const std::string& endpoint)
{
    return "Error: '" + range + "' is not valid for '" + endpoint + "'";
}

} // namespace

AdmaNode::AdmaNode(const std::shared_ptr<audio::AudioDmaManager>& manager) : mCtx(manager)
{
    FATAL_ASSERT(mCtx, "The ADMA command line node requires a valid context");
    using Manager = audio::AudioDmaManager;
    using Fsi = audio::AudioDmaFsi;
    Fsi* const fsi = mCtx->GetFsi().get();
    Add("adma",
        {MakeAction("status", this, &AdmaNode::Status, StatusHelp),
         MakeAction("transactions", this, &AdmaNode::Transactions, TransactionsHelp),
         MakeAction("links", this, &AdmaNode::Links, LinksHelp), MakeAction("patch", this, &AdmaNode::Patch, PatchHelp),
         MakeAction("patch2", this, &AdmaNode::PatchSamples, Patch2Help),
         MakeAction("clear_from", this, &AdmaNode::ClearFrom, ClearFromHelp),
         MakeAction("clear_to", this, &AdmaNode::ClearTo, ClearToHelp),
         MakeAction("clear_all", this, &AdmaNode::ClearAll, ClearAllHelp),
         MakeAction("reset_fsi", this, &AdmaNode::ResetFsi, ResetFsiHelp),
         MakeAction("sync", mCtx.get(), &Manager::Synchronise, SyncHelp),
         MakeAction("sync_ack", fsi, &Fsi::EndSync, SyncAckHelp),
         MakeAction("syncing", mCtx.get(), &Manager::IsSyncing, SyncingHelp),
         MakeAction("mute", fsi, &Fsi::SetMute, MuteHelp),
         MakeAction("mute_on_pll_loss", fsi, &Fsi::SetMuteOnPllLoss, MuteOnPllLossHelp)});
}

std::string AdmaNode::Status() const
{
    Names sources{{0, "0"}};
    Names sinks;
    std::size_t longest = 0;
    for (const auto& entry : *mCtx) {
        if (entry.second->IsSource()) sources[entry.second->GetAddress()] = entry.first;
        if (entry.second->IsSink()) sinks[entry.second->GetAddress()] = entry.first;
        longest = std::max(longest, entry.first.size());
    }
    const int width = static_cast<int>(longest);

    std::ostringstream text;
    text << std::left << std::setw(width + 13) << "Sources "
         << "Sinks";
    for (const Endpoint& sink : mCtx->GetSinkEndpoints()) {
        text << "\n";
        const auto [first, last] = mCtx->GetSinkTransactionsRange(sink);
        const auto begin = mCtx->GetSources().begin();
        const std::vector<AudioDmaTransaction> stretch(begin + static_cast<std::ptrdiff_t>(first),
                                                       begin + static_cast<std::ptrdiff_t>(last + 1));
        for (const audio::RouteRun& run : audio::SplitIntoRuns(stretch)) {
            text << std::setw(width + 2) << NameOf(sources, audio::GetEndpoint(run.firstSource)) << std::setw(7)
                 << SourceSamples(run) << std::setw(4) << " >> " << std::setw(width + 2)
                 << NameOf(sinks, sink->GetAddress()) << std::setw(7) << SinkSamples(run) << "\n";
        }
    }
    return text.str();
}

std::string AdmaNode::Transactions(unsigned first, unsigned last) const
{
    if (first > last) std::swap(first, last);
    const std::vector<std::uint32_t> table = mCtx->GetFsi()->GetSynchronisedTable();
    if (table.size() <= first) return {};
    const std::size_t end = std::min<std::size_t>(last, table.size() - 1);
    std::ostringstream text;
    for (std::size_t i = first; i <= end; ++i)
        text << std::dec << i << ": 0x" << std::hex << std::setw(8) << std::setfill('0') << table[i] << "\n";
    return text.str();
}

std::string AdmaNode::Links() const
{
    std::ostringstream text;
    for (const auto& entry : *mCtx) {
        const Endpoint& endpoint = entry.second;
        std::string transactions = "[no transactions],";
        if (endpoint->IsSink()) {
            const auto [first, last] = mCtx->GetSinkTransactionsRange(endpoint);
            transactions = "transactions " + RangeText(first, last) + ",";
        }
        text << std::setw(6) << entry.first << ": Endpoint: " << std::dec << endpoint->GetAddress() << ", "
             << std::setw(23) << transactions << " ";
        if (const auto* const block = dynamic_cast<const fsi::HostFsi*>(endpoint.get()))
            text << "FSI: " << block->GetName() << ", mapped addr: 0x" << std::hex
                 << reinterpret_cast<std::uintptr_t>(block->GetMappedAddress());
        else
            text << "[Kernel FSI]";
        text << "\n";
    }
    return text.str();
}

std::string AdmaNode::Patch(const std::string& source, const std::string& sink)
{
    return WithEnds(source, sink, [this](const Endpoint& from, const Endpoint& to) {
        mCtx->SetAudioRoutes(from, to, audio::AudioDmaManager::MappingPolicy(0));
        mCtx->Synchronise();
        return std::string();
    });
}

std::string AdmaNode::PatchSamples(const std::string& source, const std::string& sourceRange, const std::string& sink,
                                   const std::string& sinkRange)
{
    return WithEnds(source, sink, [&](const Endpoint& from, const Endpoint& to) -> std::string {
        const std::vector<AudioDmaTransaction> sources = audio::ParseSampleRange(sourceRange, *from);
        if (sources.empty()) return RangeError(sourceRange, source);
        const std::vector<AudioDmaTransaction> sinks = audio::ParseSampleRange(sinkRange, *to);
        if (sinks.empty()) return RangeError(sinkRange, sink);
        if (sources.size() != sinks.size())
            return "Error: Source and sink sizes must match: " + std::to_string(sources.size()) + " sources and " +
                   std::to_string(sinks.size()) + " sinks requested";
        mCtx->SetAudioRoutes(sources, sinks);
        mCtx->Synchronise();
        return {};
    });
}

std::string AdmaNode::ClearFrom(const std::string& source)
{
    const Endpoint from = FindSource(source);
    if (!from) return SourceError(source);
    mCtx->ClearRoutesFrom(from);
    mCtx->Synchronise();
    return {};
}

std::string AdmaNode::ClearTo(const std::string& sink)
{
    const Endpoint to = FindSink(sink);
    if (!to) return SinkError(sink);
    mCtx->ClearRoutesTo(to);
    mCtx->Synchronise();
    return {};
}

void AdmaNode::ClearAll()
{
    mCtx->ClearAllRoutes();
    mCtx->Synchronise();
}

void AdmaNode::ResetFsi()
{
    const std::shared_ptr<audio::AudioDmaFsi> fsi = mCtx->GetFsi();
    static const std::vector<AudioDmaTransaction> zeros(fsi->GetTableSize());
    fsi->SetTransactions(zeros, zeros);
    fsi->StartSync();
    mCtx->ClearAllRoutes();
}

std::string AdmaNode::WithEnds(const std::string& source, const std::string& sink,
                               const std::function<std::string(const Endpoint&, const Endpoint&)>& work) const
{
    const Endpoint from = FindSource(source);
    if (!from) return SourceError(source);
    const Endpoint to = FindSink(sink);
    if (!to) return SinkError(sink);
    return work(from, to);
}

AdmaNode::Endpoint AdmaNode::FindSource(const std::string& name) const
{
    Endpoint endpoint = mCtx->Get(name);
    return endpoint && endpoint->IsSource() ? endpoint : nullptr;
}

AdmaNode::Endpoint AdmaNode::FindSink(const std::string& name) const
{
    Endpoint endpoint = mCtx->Get(name);
    return endpoint && endpoint->IsSink() ? endpoint : nullptr;
}
