#pragma once

#include "MiscSource/GlobalConstants.h"

#include <cstddef>
#include <string>
#include <vector>

/// The sample rates that a device supports.
using RateList = std::vector<SampleRates::SystemSampleRate>;
/// Of one device; a peer may report rates without end.
constexpr std::size_t MaxRates = 16;

/// Each rate's text, followed by a blank.
std::string RatesText(const RateList& rates);
/// The first MaxRates of them.
RateList FirstRates(const RateList& rates);
