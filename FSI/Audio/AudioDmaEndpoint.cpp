#include "FSI/Audio/AudioDmaEndpoint.h"

#include "MiscSource/FatalAssert.h"

namespace audio {

namespace {

std::uint32_t MakeKey(AudioDmaEndpoint::Address sink, FrequencyScaler scaler, SampleRates::SystemSampleRate rate)
{
    return std::uint32_t{sink} << 16 | (scaler & 0xFF) << 8 | (static_cast<std::uint32_t>(rate) & 0xFF);
}

} // namespace

AudioDmaEndpoint::AudioDmaEndpoint(Address address, std::size_t sampleSpace, Direction direction)
    : mId(address), mSampleSpace(sampleSpace), mDirection(direction)
{
    FATAL_ASSERT(mId != 0, "Endpoint Id 0 is reserved.");
    FATAL_ASSERT(mSampleSpace > 0 && mSampleSpace <= MaximumSamplesPerEndpoint, "Invalid endpoint sample size.");
    if (IsSink()) mDestinations = MakeTransactions(mId, 0, static_cast<std::uint16_t>(mSampleSpace - 1));
}

void AudioDmaEndpoint::SetDefaultSourceTransactions(const std::vector<AudioDmaTransaction>& transactions,
                                                    const std::shared_ptr<const AudioDmaEndpoint>& sink,
                                                    FrequencyScaler scaler, SampleRates::SystemSampleRate rate)
{
    FATAL_ASSERT(!transactions.empty(), "SetSourceTransactions requires non-empty transactions");
    mSources[MakeKey(sink->GetAddress(), scaler, rate)] = transactions;
}

bool AudioDmaEndpoint::HasSourceTransactions(const std::shared_ptr<const AudioDmaEndpoint>& sink,
                                             FrequencyScaler scaler, SampleRates::SystemSampleRate rate) const
{
    return mSources.count(MakeKey(sink->GetAddress(), scaler, rate)) != 0;
}

std::vector<AudioDmaTransaction>
AudioDmaEndpoint::GetSourceTransactions(const std::shared_ptr<const AudioDmaEndpoint>& sink)
{
    const std::uint32_t key = MakeKey(sink->GetAddress(), GetFrequencyScaler(), GetSampleRate());
    // Does nothing where the pairing is stored already.
    return mSources.try_emplace(key, sink->GetSampleSpace()).first->second;
}

} // namespace audio
