#pragma once

#include <string_view>

namespace watch {

constexpr std::string_view UnknownFeature = "unknown";

/// The debug feature of a message of the log, by how its text begins; UnknownFeature if no such text is known. The
/// table is made from the module's sources, so it is right for a module of the same version.
std::string_view FeatureOf(std::string_view text);

/// Assert, Fault and Invalid.
bool IsFaultFeature(std::string_view feature);

} // namespace watch
