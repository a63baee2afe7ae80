#pragma once

#include "Utilities/Watch/Picture.h"

#include <cstddef>
#include <string>

namespace watch {

/// What the program knows of itself.
struct OwnFigures
{
    std::size_t viewers = 0;
    std::uint64_t requests = 0;
    std::size_t listingsInFlight = 0;
};

/// The picture in the text form of Prometheus.
std::string MetricsText(const Picture& picture, const OwnFigures& own, Milliseconds now);

} // namespace watch
