#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string_view>

namespace watch {

/// Walks over a text from left to right. Each operation either takes what it asks for, or takes nothing.
class Scanner
{
public:
    explicit Scanner(std::string_view text) : mRest(text) {}

    std::string_view Rest() const { return mRest; }
    bool IsAtEnd() const { return mRest.empty(); }

    bool Skip(std::string_view literal)
    {
        if (mRest.substr(0, literal.size()) != literal) return false;
        mRest.remove_prefix(literal.size());
        return true;
    }

    void SkipBlanks()
    {
        while (!mRest.empty() && (mRest.front() == ' ' || mRest.front() == '\t'))
            mRest.remove_prefix(1);
    }

    /// The text before the literal; skips the literal.
    std::optional<std::string_view> Until(std::string_view literal)
    {
        const std::size_t position = mRest.find(literal);
        if (position == std::string_view::npos) return std::nullopt;
        const std::string_view text = mRest.substr(0, position);
        mRest.remove_prefix(position + literal.size());
        return text;
    }

    /// The line up to its end, or what is left of the text.
    std::string_view Line()
    {
        if (const auto line = Until("\n")) {
            return !line->empty() && line->back() == '\r' ? line->substr(0, line->size() - 1) : *line;
        }
        const std::string_view line = mRest;
        mRest = {};
        return line;
    }

    /// Up to the next blank.
    std::string_view Word()
    {
        SkipBlanks();
        const std::string_view word = mRest.substr(0, mRest.find(' '));
        mRest.remove_prefix(word.size());
        return word;
    }

    std::optional<std::uint32_t> Number(int base = 10)
    {
        std::uint32_t value{};
        const auto [end, error] = std::from_chars(mRest.data(), mRest.data() + mRest.size(), value, base);
        if (error != std::errc()) return std::nullopt;
        mRest.remove_prefix(static_cast<std::size_t>(end - mRest.data()));
        return value;
    }

    /// "true" or "false".
    std::optional<bool> Flag()
    {
        if (Skip("true")) return true;
        if (Skip("false")) return false;
        return std::nullopt;
    }

private:
    std::string_view mRest;
};

} // namespace watch
