#pragma once

#include "Utilities/Watch/Picture.h"

#include <string>

namespace watch {

/// One section of /api/state; docs/watch.md has the schema.
std::string SectionJson(const Picture& picture, Section section);

/// Lines of the log from the given number on, at most so many: the data of a "log" event.
std::string LogJson(const LogStore& log, std::uint64_t from, std::size_t most);

} // namespace watch
