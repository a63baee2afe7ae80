#pragma once

#include <cstdint>
#include <vector>

namespace audio {

/// Names one sample of one endpoint: the sample in bits 8 to 0, the endpoint's address in bits 11 to 9, the rest
/// zero. As a source, 0 is silence; no endpoint has the address 0.
using AudioDmaTransaction = std::uint16_t;

constexpr std::uint16_t MaximumEndpointCount = 8;
constexpr std::uint16_t MaximumSamplesPerEndpoint = 512;

constexpr std::uint16_t GetEndpoint(AudioDmaTransaction transaction)
{
    return static_cast<std::uint16_t>(transaction >> 9);
}
constexpr std::uint16_t GetSample(AudioDmaTransaction transaction)
{
    return static_cast<std::uint16_t>(transaction & 0x1FF);
}

/// @param ep 0 to 7
/// @param sample 0 to 511
AudioDmaTransaction MakeTransaction(std::uint16_t ep, std::uint16_t sample);

/// The transactions of the samples first to last, both included, in ascending order.
/// @param ep 0 to 7
/// @param first,last 0 to 511, first not above last
std::vector<AudioDmaTransaction> MakeTransactions(std::uint16_t ep, std::uint16_t first, std::uint16_t last);

} // namespace audio
