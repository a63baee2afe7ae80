#pragma once

#include "Utilities/Watch/Picture.h"

#include <cstddef>
#include <string>

namespace watch {

/// What the program knows of itself.
struct OwnFigures
{
    std::size_t viewers{};
    std::uint64_t requests{};
    std::size_t listingsInFlight{};
};

/// The picture in the text form of Prometheus.
std::string MetricsText(const Picture& picture, const OwnFigures& own, Milliseconds now);

} // namespace watch
