#include "FSI/Audio/AudioDmaManager.h"

#include "Audit/Audit.h"
#include "MiscSource/FatalAssert.h"

#include <algorithm>
#include <ios>

namespace audio {

namespace {

/// Scaler and rate of an endpoint's routes until others are set up.
constexpr FrequencyScaler DefaultScaler = 1;
constexpr SampleRates::SystemSampleRate DefaultRate = SampleRates::RATE_48K;

/// As a number, since an address may be out of the range of a transaction.
std::uint32_t FirstTransaction(const AudioDmaEndpoint& endpoint)
{
    return endpoint.GetAddress() * std::uint32_t{MaximumSamplesPerEndpoint};
}

bool Holds(const AudioDmaManager::Endpoints& endpoints, const std::shared_ptr<AudioDmaEndpoint>& endpoint)
{
    const auto found = endpoints.find(endpoint);
    return found != endpoints.end() && *found == endpoint;
}

} // namespace

AudioDmaManager::AudioDmaManager(std::shared_ptr<AudioDmaFsi> fsi, const fsi::DeviceRegistry* registry)
    : DeviceRegistryView(registry),
      mFsi(std::move(fsi)),
      mRegistry(registry),
      mSources(mFsi->GetTableSize()),
      mSinks(mFsi->GetTableSize()),
      mSinkIndex(AudioDmaFsi::GetMaximumEndpointCount() * AudioDmaFsi::GetMaximumSamplesPerEndpoint())
{
    IndexSinks();
}

AudioDmaManager::~AudioDmaManager()
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mRunning = false;
    }
    mCondition.notify_all();
    if (mThread.joinable()) mThread.join();
}

void AudioDmaManager::RegisterEndpoints(const std::vector<std::shared_ptr<AudioDmaEndpoint>>& endpoints)
{
    FATAL_ASSERT(!IsRunning(), "Endpoint registration can only be performed once.");
    std::size_t nextSinkEndpointIndex = 0;
    for (const std::shared_ptr<AudioDmaEndpoint>& endpoint : endpoints) {
        if (endpoint->IsSource()) {
            AssertValidRegistration(endpoint, mSourceEndpoints);
            mSourceEndpoints.insert(endpoint);
        }
        if (endpoint->IsSink()) RegisterSink(endpoint, nextSinkEndpointIndex);
        if (endpoint->IsSource()) {
            for (const std::shared_ptr<AudioDmaEndpoint>& sink : endpoints)
                if (sink->IsSink()) StoreDefaultSources(*endpoint, sink);
        }
    }
    IndexSinks();
    // The endpoints came into the registry after this object was made.
    static_cast<DeviceRegistryView&>(*this) = DeviceRegistryView(mRegistry);
    Start();
}

void AudioDmaManager::AssertValidRegistration(const std::shared_ptr<AudioDmaEndpoint>& endpoint,
                                              const Endpoints& endpoints) const
{
    FATAL_ASSERT(endpoints.count(endpoint) == 0, "Endpoint with given address already registered.");
    FATAL_ASSERT(endpoints.size() < AudioDmaFsi::GetMaximumEndpointCount(), "Endpoint count already reached.");
    FATAL_ASSERT(endpoint->GetDestinationTransactions().size() <= AudioDmaFsi::GetMaximumSamplesPerEndpoint(),
                 "Invalid endpoint sample size.");
}

void AudioDmaManager::RegisterSink(const std::shared_ptr<AudioDmaEndpoint>& endpoint, std::size_t& nextIndex)
{
    AssertValidRegistration(endpoint, mSinkEndpoints);
    const std::vector<AudioDmaTransaction> destinations = endpoint->GetDestinationTransactions();
    FATAL_ASSERT(destinations.size() <= mSinks.size() - nextIndex, "Endpoint registration exceeds ADMA table size.");
    std::copy(destinations.begin(), destinations.end(),
              mSinks.begin() + static_cast<std::vector<AudioDmaTransaction>::difference_type>(nextIndex));
    mSinkEndpoints.insert(endpoint);
    nextIndex += destinations.size();
}

void AudioDmaManager::StoreDefaultSources(AudioDmaEndpoint& source, const std::shared_ptr<AudioDmaEndpoint>& sink) const
{
    std::vector<AudioDmaTransaction> transactions =
        MakeTransactions(source.GetAddress(), 0, static_cast<std::uint16_t>(source.GetSampleSpace() - 1));
    transactions.resize(sink->GetSampleSpace());

    const auto store = [&](FrequencyScaler scaler, SampleRates::SystemSampleRate rate) {
        if (!source.HasSourceTransactions(sink, scaler, rate))
            source.SetDefaultSourceTransactions(transactions, sink, scaler, rate);
    };
    store(DefaultScaler, DefaultRate);
    // A route from endpoint to endpoint looks the list up under the endpoint's own scaler and rate.
    store(source.GetFrequencyScaler(), source.GetSampleRate());
}

void AudioDmaManager::IndexSinks()
{
    std::fill(mSinkIndex.begin(), mSinkIndex.end(), std::nullopt);
    for (std::size_t i = mSinks.size(); i-- > 0;)
        mSinkIndex[mSinks[i]] = i;
}

void AudioDmaManager::SetAudioRoute(const AudioDmaTransaction& source, const AudioDmaTransaction& sink)
{
    AUDIT_STREAM(RouterAudioRoute, "SetAudioRoute Src " << std::hex << source << " Dst " << sink << "\n");
    const std::optional<std::size_t> index = FindSink(sink);
    FATAL_ASSERT(index, "SetAudioPath: Unknown sink specified.");
    mSources[*index] = source;
}

void AudioDmaManager::SetAudioRoutes(const std::shared_ptr<AudioDmaEndpoint>& source,
                                     const std::shared_ptr<AudioDmaEndpoint>& sink, const MappingPolicy& policy)
{
    FATAL_ASSERT(Holds(mSourceEndpoints, source), "SetAudioRoutes: Unregistered source endpoint specified.");
    SetAudioRoutes(source->GetSourceTransactions(sink), sink, policy);
}

void AudioDmaManager::SetAudioRoutes(const std::vector<AudioDmaTransaction>& sources,
                                     const std::shared_ptr<AudioDmaEndpoint>& sink, const MappingPolicy& policy)
{
    FATAL_ASSERT(Holds(mSinkEndpoints, sink), "Unregistered sink endpoint specified.");
    if (sources.empty()) return;
    FATAL_ASSERT(policy.sinkOffset < sink->GetSampleSpace(), "Invalid first sink sample.");
    const std::optional<std::size_t> first =
        FindSink(FirstTransaction(*sink) + static_cast<std::uint32_t>(policy.sinkOffset));
    FATAL_ASSERT(first, "Unregistered sink endpoint specified.");
    const std::size_t available = sink->GetSampleSpace() - policy.sinkOffset;

    if (policy.mode == MappingPolicy::Mode::Positional) {
        const std::size_t offset = std::min(policy.sourceOffset, sources.size());
        const std::size_t count = std::min(sources.size() - offset, available);
        for (std::size_t i = 0; i < count; ++i)
            mSources[*first + i] = sources[offset + i];
        return;
    }
    for (const AudioDmaTransaction source : sources) {
        const std::size_t sample = GetSample(source);
        if (sample < available) mSources[*first + sample] = source;
    }
}

void AudioDmaManager::SetAudioRoutes(const std::vector<AudioDmaTransaction>& sources,
                                     const std::vector<AudioDmaTransaction>& sinks)
{
    FATAL_ASSERT(sources.size() == sinks.size(), "Bulk set sources and sinks must be the same size.");
    FATAL_ASSERT(std::is_sorted(sources.begin(), sources.end()) && std::is_sorted(sinks.begin(), sinks.end()),
                 "SetTransactions requires sorted source and sink transactions.");
    std::vector<AudioDmaTransaction> changed = mSources;
    for (std::size_t i = 0; i < sinks.size(); ++i) {
        const std::optional<std::size_t> first = FindSink(MakeTransaction(GetEndpoint(sinks[i]), 0));
        FATAL_ASSERT(first, "Unregistered sink endpoint specified.");
        const std::size_t index = *first + GetSample(sinks[i]);
        FATAL_ASSERT(index < mSinks.size() && mSinks[index] == sinks[i], "SetAudioPath: Unknown sink specified.");
        changed[index] = sources[i];
    }
    mSources.swap(changed);
}

void AudioDmaManager::ClearRoutesTo(const std::shared_ptr<AudioDmaEndpoint>& sink)
{
    const std::vector<AudioDmaTransaction> destinations = sink->GetDestinationTransactions();
    SetAudioRoutes(std::vector<AudioDmaTransaction>(destinations.size()), destinations);
}

void AudioDmaManager::ClearRoutesFrom(const std::shared_ptr<AudioDmaEndpoint>& source)
{
    for (AudioDmaTransaction& entry : mSources)
        if (GetEndpoint(entry) == source->GetAddress()) entry = 0;
}

std::pair<std::size_t, std::size_t>
AudioDmaManager::GetSinkTransactionsRange(const std::shared_ptr<const AudioDmaEndpoint>& sink) const
{
    FATAL_ASSERT(sink->IsSink(), "Not a sink.");
    const std::optional<std::size_t> first = FindSink(FirstTransaction(*sink));
    FATAL_ASSERT(first, "Unregistered sink endpoint specified.");
    return {*first, *first + sink->GetSampleSpace() - 1};
}

void AudioDmaManager::Synchronise()
{
    mFsi->SetTransactions(mSources, mSinks);
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        FATAL_ASSERT(mRunning, "Sync thread must be started before requests can be made.");
        mSyncRequested = true;
    }
    mCondition.notify_all();
}

bool AudioDmaManager::IsRunning() const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mRunning;
}

void AudioDmaManager::Start()
{
    FATAL_ASSERT(!IsRunning(), "Sync thread must only be started once.");
    mThread = std::thread([this] { RunSync(); });
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mCondition.wait(lock, [this] { return mRunning; });
    }
    Synchronise();
}

void AudioDmaManager::RunSync()
{
    mEndOfSync = mFsi->ConnectEndOfSync([weak = weak_from_this()] {
        if (const std::shared_ptr<AudioDmaManager> self = weak.lock()) self->OnEndOfSync();
    });
    // A sync that an earlier run of the process began still has its interrupt to come.
    const bool complete = !mFsi->IsSyncing();
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSyncComplete = complete;
        mRunning = true;
    }
    mCondition.notify_all();

    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mMutex);
            mCondition.wait(lock, [this] { return !mRunning || (mSyncRequested && mSyncComplete); });
            if (!mRunning) return;
            mSyncRequested = false;
            mSyncComplete = false;
        }
        mFsi->StartSync();
    }
}

void AudioDmaManager::OnEndOfSync()
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mFsi->EndSync();
        mSyncComplete = true;
    }
    mCondition.notify_all();
}

} // namespace audio
