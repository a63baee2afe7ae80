#pragma once

#include "FSI/Audio/AudioDmaEndpoint.h"
#include "FSI/Audio/AudioDmaFsi.h"
#include "FSI/Audio/AudioDmaTransaction.h"
#include "FSI/Core/DeviceRegistryView.h"

#include <boost/signals2/connection.hpp>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace audio {

/// The software model of the ADMA table: which endpoints there are and which source sample feeds which sink sample.
///
/// The route setters change the model only; Synchronise writes the whole table and has the sync thread, which this
/// class owns, ask the FPGA to activate it. One sync is in flight at a time, later requests fold into one. All
/// operations run on the main thread. mMutex guards mRunning, mSyncRequested and mSyncComplete; it may be held while
/// the mutex of the FSI is taken, never the other way round. The sync thread does not log. Held by shared pointer, and
/// its destructor uses only its own FSI.
///
/// As a view it holds the endpoints of the registry, from RegisterEndpoints on.
class AudioDmaManager : public std::enable_shared_from_this<AudioDmaManager>,
                        public fsi::DeviceRegistryView<AudioDmaEndpoint>
{
public:
    /// How a list of source transactions lands on a sink.
    struct MappingPolicy
    {
        enum class Mode {
            /// Source sample n feeds sample n of the range. Unused in this module.
            BySample = 0,
            /// Element n of the list feeds sample n of the range.
            Positional = 1
        };

        explicit MappingPolicy(std::size_t firstSinkSample) : sinkOffset(firstSinkSample) {}

        Mode mode = Mode::Positional;
        /// First sample of the range in the sink.
        std::size_t sinkOffset;
        /// First element of the list that is used.
        std::size_t sourceOffset = 0;
    };

    struct ByAddress
    {
        bool operator()(const std::shared_ptr<AudioDmaEndpoint>& a, const std::shared_ptr<AudioDmaEndpoint>& b) const
        {
            return a->GetAddress() < b->GetAddress();
        }
    };
    using Endpoints = std::set<std::shared_ptr<AudioDmaEndpoint>, ByAddress>;

    /// @param registry where the view finds the endpoints; may be null, and must outlive RegisterEndpoints
    AudioDmaManager(std::shared_ptr<AudioDmaFsi> fsi, const fsi::DeviceRegistry* registry);
    ~AudioDmaManager();

    /// Called once: stores the endpoints, starts the sync thread, and sends the first table, which is silence.
    void RegisterEndpoints(const std::vector<std::shared_ptr<AudioDmaEndpoint>>& endpoints);
    /// One route. The sink must be a sample of a registered endpoint.
    void SetAudioRoute(const AudioDmaTransaction& source, const AudioDmaTransaction& sink);

    /// All routes from one endpoint to another.
    void SetAudioRoutes(const std::shared_ptr<AudioDmaEndpoint>& source, const std::shared_ptr<AudioDmaEndpoint>& sink,
                        const MappingPolicy& policy);
    /// What does not fit the sink is left out; an empty list changes nothing.
    void SetAudioRoutes(const std::vector<AudioDmaTransaction>& sources, const std::shared_ptr<AudioDmaEndpoint>& sink,
                        const MappingPolicy& policy);
    /// Source i feeds sink i. Both lists have one length and are in ascending order.
    void SetAudioRoutes(const std::vector<AudioDmaTransaction>& sources, const std::vector<AudioDmaTransaction>& sinks);

    void ClearRoutesTo(const std::shared_ptr<AudioDmaEndpoint>& sink);
    void ClearRoutesFrom(const std::shared_ptr<AudioDmaEndpoint>& source);
    void ClearAllRoutes() { mSources.assign(mSources.size(), 0); }

    /// First and last table index of that sink.
    std::pair<std::size_t, std::size_t>
    GetSinkTransactionsRange(const std::shared_ptr<const AudioDmaEndpoint>& sink) const;

    /// Writes the table and requests its activation. It does not wait.
    void Synchronise();
    bool IsSyncing() const { return mFsi->IsSyncing(); }
    std::shared_ptr<AudioDmaFsi> GetFsi() const { return mFsi; }
    /// Source of each table entry, 0 for silence.
    const std::vector<AudioDmaTransaction>& GetSources() const { return mSources; }
    /// In the order of their addresses.
    const Endpoints& GetSinkEndpoints() const { return mSinkEndpoints; }
    /// Starts the sync thread and sends the table. RegisterEndpoints calls it.
    void Start();

private:
    void AssertValidRegistration(const std::shared_ptr<AudioDmaEndpoint>& endpoint, const Endpoints& endpoints) const;
    void RegisterSink(const std::shared_ptr<AudioDmaEndpoint>& endpoint, std::size_t& nextIndex);
    void StoreDefaultSources(AudioDmaEndpoint& source, const std::shared_ptr<AudioDmaEndpoint>& sink) const;
    void IndexSinks();
    std::optional<std::size_t> FindSink(std::uint32_t transaction) const
    {
        return transaction < mSinkIndex.size() ? mSinkIndex[transaction] : std::nullopt;
    }
    bool IsRunning() const;
    void RunSync();
    void OnEndOfSync();

    const std::shared_ptr<AudioDmaFsi> mFsi;
    const fsi::DeviceRegistry* const mRegistry;
    /// Entry i is the source of table entry i.
    std::vector<AudioDmaTransaction> mSources;
    /// Entry i is the destination of table entry i. Filled once, at registration.
    std::vector<AudioDmaTransaction> mSinks;
    /// First table index of each sink transaction.
    std::vector<std::optional<std::size_t>> mSinkIndex;
    Endpoints mSourceEndpoints;
    Endpoints mSinkEndpoints;
    boost::signals2::scoped_connection mEndOfSync;

    std::thread mThread;
    bool mRunning = false;
    bool mSyncRequested = false;
    bool mSyncComplete{};
    mutable std::mutex mMutex;
    std::condition_variable mCondition;
};

} // namespace audio
