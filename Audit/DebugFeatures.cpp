#include "Audit/DebugFeatures.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::string_view, MaxDebugLevels + 1> FeatureNames = {
#define DEBUG_FEATURE(enumerator, name) name,
#include "Audit/DebugFeatureRows.inc"
#undef DEBUG_FEATURE
    "MaxDebugLevels"};

} // namespace

std::string_view GetFeatureName(std::uint32_t id)
{
    return FeatureNames[std::min(id, MaxDebugLevels)];
}

std::int32_t GetFeatureId(std::string_view name)
{
    const auto end = FeatureNames.begin() + MaxDebugLevels;
    const auto row = std::find(FeatureNames.begin(), end, name);
    return row == end ? -1 : static_cast<std::int32_t>(row - FeatureNames.begin());
}
