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

/// The digits of a decimal number of any size, without leading zeros.
using Digits = std::string;

bool IsAbove(const Digits& a, const Digits& b)
{
    return a.size() != b.size() ? a.size() > b.size() : a > b;
}

/// Its value, capped at one that is out of range for every endpoint.
std::size_t ValueOf(const Digits& digits)
{
    std::size_t value = 0;
    for (const char digit : digits)
        value = std::min<std::size_t>(value * 10 + static_cast<std::size_t>(digit - '0'), MaximumSamplesPerEndpoint);
    return value;
}

/// Walks the text.
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
    bool TakeNumber(Digits& number)
    {
        if (AtEnd() || !IsDigit(*mNext)) return false;
        const auto end = std::find_if_not(mNext, mEnd, IsDigit);
        number.assign(std::find_if(mNext, end, [](char digit) { return digit != '0'; }), end);
        mNext = end;
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
    std::size_t lowest = 0;
    do {
        Digits first;
        if (!reader.TakeNumber(first)) return {};
        Digits last = first;
        if (reader.Take('-') && !reader.TakeNumber(last)) return {};
        if (IsAbove(first, last)) continue;
        for (std::size_t number = ValueOf(first); number <= ValueOf(last); ++number) {
            if (number >= endpoint.GetSampleSpace()) return {};
            if (seen.test(number)) continue;
            if (number < lowest) return {};
            seen.set(number);
            lowest = number;
            transactions.push_back(MakeTransaction(endpoint.GetAddress(), static_cast<std::uint16_t>(number)));
        }
    } while (reader.Take(','));
    if (!reader.AtEnd()) return {};
    return transactions;
}

} // namespace audio
