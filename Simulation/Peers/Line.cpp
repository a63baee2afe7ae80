#include "Simulation/Peers/Line.h"

#include <boost/asio/ip/address_v4.hpp>

#include <cstdlib>
#include <sstream>

namespace peers {

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream input(text);
    for (std::string part; std::getline(input, part, separator);)
        parts.push_back(part);
    return parts;
}

std::uint32_t ToNumber(const std::string& text)
{
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || text[0] == '-' || *end != '\0' || value > 0xFFFFFFFF)
        throw LineError("'" + text + "' is no number");
    return static_cast<std::uint32_t>(value);
}

std::uint32_t ToAddress(const std::string& text)
{
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address_v4(text, error);
    return error ? ToNumber(text) : address.to_uint();
}

std::vector<std::uint32_t> ToNumbers(const std::string& text)
{
    std::vector<std::uint32_t> numbers;
    for (const std::string& part : Split(text, ',')) {
        const auto dash = part.find('-');
        const std::uint32_t first = ToNumber(part.substr(0, dash));
        const std::uint32_t last = dash == std::string::npos ? first : ToNumber(part.substr(dash + 1));
        if (last < first || last - first >= 65536 - numbers.size()) throw LineError("'" + part + "' is no range");
        for (std::uint32_t i = first;; ++i) {
            numbers.push_back(i);
            if (i == last) break;
        }
    }
    return numbers;
}

Line::Line(const std::string& text)
{
    std::istringstream input(text);
    input >> mVerb;
    for (std::string word; input >> word;) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) {
            mWords.push_back(word);
        } else {
            mNamed[word.substr(0, equals)] = word.substr(equals + 1);
        }
    }
}

const std::string& Line::Word(std::size_t index) const
{
    if (index >= mWords.size()) throw LineError("'" + mVerb + "' needs more words; see help");
    return mWords[index];
}

Line Line::After(std::size_t index) const
{
    Line rest = *this;
    rest.mVerb = Word(index);
    rest.mWords.erase(rest.mWords.begin(), rest.mWords.begin() + static_cast<std::ptrdiff_t>(index + 1));
    return rest;
}

bool Line::Flag(std::size_t index) const
{
    const std::string& word = Word(index);
    if (word == "on" || word == "1") return true;
    if (word == "off" || word == "0") return false;
    throw LineError("'" + word + "' is neither on nor off");
}

std::string Line::Named(const std::string& key, const std::string& otherwise) const
{
    const auto found = mNamed.find(key);
    return found == mNamed.end() ? otherwise : found->second;
}

std::uint32_t Line::Named(const std::string& key, std::uint32_t otherwise) const
{
    const auto found = mNamed.find(key);
    return found == mNamed.end() ? otherwise : ToNumber(found->second);
}

} // namespace peers
