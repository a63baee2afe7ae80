#include "Utilities/Watch/LogStore.h"

#include "Utilities/Watch/LogFeatures.h"

#include <utility>

namespace watch {

bool LogStore::Add(LogMessage message, Milliseconds now)
{
    const std::string_view feature = FeatureOf(message.text);
    ++mCounts[feature];
    mBytes += message.text.size();
    mEntries.push_back({++mNewest, now, std::move(message.stamp), feature, std::move(message.text)});
    const bool isFault = IsFaultFeature(feature);
    if (isFault) {
        mFaults.push_back(mEntries.back());
        if (mFaults.size() > MaxFaults) mFaults.pop_front();
    }
    while (mEntries.size() > MaxEntries || mBytes > MaxBytes) {
        mBytes -= mEntries.front().text.size();
        mEntries.pop_front();
    }
    return isFault;
}

} // namespace watch
