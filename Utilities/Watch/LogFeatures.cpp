#include "Utilities/Watch/LogFeatures.h"

namespace watch {

namespace {

struct LogText
{
    std::string_view start;
    std::string_view feature;
};

constexpr LogText LogTexts[] = {
#include "Utilities/Watch/LogTexts.inc"
};

/// The tag of a tagged message: "[40000002] ".
std::string_view WithoutTag(std::string_view text)
{
    constexpr std::size_t Size = 11;
    return text.size() >= Size && text.front() == '[' && text.substr(Size - 2, 2) == "] " ? text.substr(Size) : text;
}

} // namespace

std::string_view FeatureOf(std::string_view message)
{
    const std::string_view text = WithoutTag(message);
    const LogText* best = nullptr;
    for (const LogText& entry : LogTexts) {
        if (best && entry.start.size() <= best->start.size()) continue;
        if (text.substr(0, entry.start.size()) == entry.start) best = &entry;
    }
    return best ? best->feature : UnknownFeature;
}

bool IsFaultFeature(std::string_view feature)
{
    return feature == "Fault" || feature == "Assert" || feature == "Invalid";
}

} // namespace watch
