#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace peers {

/// A line that cannot be understood; the text is the answer.
class LineError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

std::vector<std::string> Split(const std::string& text, char separator);
/// Decimal or 0x; throws LineError.
std::uint32_t ToNumber(const std::string& text);
/// Dotted quad, or a number; host order.
std::uint32_t ToAddress(const std::string& text);
/// "0-15,32": throws LineError, also for more than 65536 numbers.
std::vector<std::uint32_t> ToNumbers(const std::string& text);

/// One line of the control channel: a verb, words, and words of the form key=value. Values hold no blanks.
class Line
{
public:
    explicit Line(const std::string& text);

    const std::string& GetVerb() const { return mVerb; }
    std::size_t Count() const { return mWords.size(); }
    /// The word at a position after the verb; throws LineError if there is none.
    const std::string& Word(std::size_t index) const;
    std::uint32_t Number(std::size_t index) const { return ToNumber(Word(index)); }
    std::uint32_t NumberOr(std::size_t index, std::uint32_t otherwise) const
    {
        return index < mWords.size() ? Number(index) : otherwise;
    }
    bool Flag(std::size_t index) const;
    /// The line that begins at a word: its verb is that word, and the named words stay.
    Line After(std::size_t index) const;
    bool Has(const std::string& key) const { return mNamed.count(key) != 0; }
    std::string Named(const std::string& key, const std::string& otherwise) const;
    std::uint32_t Named(const std::string& key, std::uint32_t otherwise) const;

private:
    std::string mVerb;
    std::vector<std::string> mWords;
    std::map<std::string, std::string> mNamed;
};

} // namespace peers
