#pragma once

#include <string_view>

namespace watch {

struct Asset
{
    std::string_view type{};
    /// With its quotes, as in the header.
    std::string_view tag{};
    std::string_view body{};
};

/// A file of the page by its path, "/" being the page itself; null if there is none.
const Asset* FindAsset(std::string_view path);

} // namespace watch
