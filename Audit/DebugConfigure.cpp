#include "Audit/DebugConfigure.h"

#include "Audit/Audit.h"

#include <charconv>
#include <cstdint>
#include <fstream>
#include <optional>

namespace {

/// Longer than any name or number. Of a longer word the message shows only the beginning.
constexpr std::size_t MaxWord = 1024;

std::optional<std::uint32_t> ParseNumber(const std::string& word)
{
    std::uint32_t number{};
    const char* const end = word.data() + word.size();
    const auto [next, error] = std::from_chars(word.data(), end, number);
    if (error != std::errc{} || next != end) return std::nullopt;
    return number;
}

void SetFeature(const std::string& word, bool on)
{
    Audit* const audit = Audit::Instance();
    std::uint32_t id = 0;
    if (word.front() >= '0' && word.front() <= '9') {
        const std::optional<std::uint32_t> number = ParseNumber(word);
        if (!number) {
            audit->Write("Debug: What does :%s mean?\r\n", word.c_str());
            return;
        }
        id = *number;
    } else {
        id = static_cast<std::uint32_t>(GetFeatureId(word));
    }
    if (id < MaxDebugLevels) {
        audit->SetEnabled(id, on);
        audit->Write("Debug Feature %s (%d) is %s\r\n", GetFeatureName(id).data(), static_cast<int>(id),
                     on ? "On" : "Off");
    } else {
        audit->Write("DebugId %d MaxDebugLevels %d Assert %d\r\n", static_cast<int>(id),
                     static_cast<int>(MaxDebugLevels), static_cast<int>(DebugFeature::Assert));
        audit->Write("Feature %s is unknown \r\n", word.c_str());
    }
}

} // namespace

DebugConfigure& DebugConfigure::Instance()
{
    static DebugConfigure instance;
    return instance;
}

void DebugConfigure::ReadFile(const std::string& path)
{
    std::ifstream file(path);
    if (!file) {
        Audit::Instance()->Write("DebugConfig : unable to access File '%s'.\n", path.c_str());
        return;
    }
    Audit::Instance()->Write("DebugConfig : Reading File '%s' ...\n", path.c_str());

    bool on = false;
    std::string word;
    const auto endWord = [&] {
        if (word == "on" || word == "off") {
            on = word == "on";
        } else if (!word.empty()) {
            SetFeature(word, on);
        }
        word.clear();
    };
    // A read error, such as a directory of that name gives, ends the loop like the end of the file.
    for (char next = 0; file.get(next);) {
        if (next != ' ' && next != '\t' && next != '\n') {
            if (word.size() < MaxWord) word += next;
            continue;
        }
        endWord();
        if (next == '\n') on = false;
    }
    endWord();
}
