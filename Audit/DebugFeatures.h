#pragma once

#include <cstdint>
#include <string_view>

/// Every log line belongs to one of these features, and is written only while its feature is on.
/// The numbers are known to service engineers (shell command "db", debug.conf) and never change.
enum class DebugFeature : std::uint32_t {
#define DEBUG_FEATURE(enumerator, name) enumerator,
#include "Audit/DebugFeatureRows.inc"
#undef DEBUG_FEATURE
    MaxDebugLevels
};

constexpr std::uint32_t MaxDebugLevels = static_cast<std::uint32_t>(DebugFeature::MaxDebugLevels);

/// Name of a feature, a literal that ends in a zero; any number above 206 gives "MaxDebugLevels".
std::string_view GetFeatureName(std::uint32_t id);

/// Number of the first feature with exactly this name (case matters), -1 if there is none.
std::int32_t GetFeatureId(std::string_view name);
