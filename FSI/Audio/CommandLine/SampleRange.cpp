#include "FSI/Audio/CommandLine/SampleRange.h"

#include <algorithm>
#include <bitset>
#include <cstddef>
#include <cstdint>

namespace audio {

namespace {

bool IsDigit(char character)
{
    return character >= '0' && character <= '9';
}

/// Walks the text. Numbers past the samples of any endpoint stay at one value that is out of range for all.
class Reader
{
public:
    explicit Reader(const std::string& text) : mNext(text.begin()), mEnd(text.end()) {}

    bool AtEnd() const { return mNext == mEnd; }
    bool Take(char character)
    {
        const bool there = !AtEnd() && *mNext == character;
        if (there) ++mNext;
        return there;
    }
    /// False if no digit is next.
    bool TakeNumber(std::uint16_t& number)
    {
        if (AtEnd() || !IsDigit(*mNext)) return false;
        std::uint32_t value = 0;
        for (; !AtEnd() && IsDigit(*mNext); ++mNext)
            value = std::min<std::uint32_t>(value * 10 + static_cast<std::uint32_t>(*mNext - '0'),
                                            MaximumSamplesPerEndpoint);
        number = static_cast<std::uint16_t>(value);
        return true;
    }

private:
    std::string::const_iterator mNext;
    const std::string::const_iterator mEnd;
};

} // namespace

std::vector<AudioDmaTransaction> ParseSampleRange(const std::string& text, const AudioDmaEndpoint& endpoint)
{
    Reader reader(text);
    std::vector<AudioDmaTransaction> transactions;
    std::bitset<MaximumSamplesPerEndpoint> seen;
    std::uint16_t lowest = 0;
    do {
        std::uint16_t first = 0;
        if (!reader.TakeNumber(first)) return {};
        std::uint16_t last = first;
        if (reader.Take('-') && !reader.TakeNumber(last)) return {};
        for (std::uint16_t number = first; number <= last; ++number) {
            if (number >= endpoint.GetSampleSpace()) return {};
            if (seen.test(number)) continue;
            if (number < lowest) return {};
            seen.set(number);
            lowest = number;
            transactions.push_back(MakeTransaction(endpoint.GetAddress(), number));
        }
    } while (reader.Take(','));
    if (!reader.AtEnd()) return {};
    return transactions;
}

} // namespace audio
