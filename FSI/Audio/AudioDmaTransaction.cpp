#include "FSI/Audio/AudioDmaTransaction.h"

#include "MiscSource/FatalAssert.h"

#include <cstddef>

namespace audio {

AudioDmaTransaction MakeTransaction(std::uint16_t ep, std::uint16_t sample)
{
    FATAL_ASSERT(ep < MaximumEndpointCount, "Invalid ADMA transaction endpoint.");
    FATAL_ASSERT(sample < MaximumSamplesPerEndpoint, "Invalid ADMA transaction sample.");
    return static_cast<AudioDmaTransaction>(ep << 9 | sample);
}

std::vector<AudioDmaTransaction> MakeTransactions(std::uint16_t ep, std::uint16_t first, std::uint16_t last)
{
    FATAL_ASSERT(first <= last, "Invalid sample range for MakeTransactions.");
    AudioDmaTransaction transaction = MakeTransaction(ep, first);
    MakeTransaction(ep, last);
    std::vector<AudioDmaTransaction> transactions(static_cast<std::size_t>(last - first) + 1);
    for (AudioDmaTransaction& entry : transactions)
        entry = transaction++;
    return transactions;
}

} // namespace audio
