#include "Utilities/CommandLine/Parser.h"

#include <boost/algorithm/string/erase.hpp>
#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>

#include <algorithm>
#include <charconv>
#include <map>
#include <set>
#include <typeindex>

namespace cmd::parser {

namespace {

using TypeNames = std::map<std::type_index, std::string>;

template <class T>
void AddType(TypeNames& names, std::string name)
{
    boost::erase_all(name, "std::");
    names.emplace(typeid(T), name);
}

template <class T>
void AddTypes(TypeNames& names, const std::string& name)
{
    AddType<T>(names, name);
    AddType<std::vector<T>>(names, "std::vector<" + name + ">");
    AddType<std::set<T>>(names, "std::set<" + name + ">");
}

TypeNames MakeTypeNames()
{
    TypeNames names;
    AddType<void>(names, "void");
    AddTypes<char>(names, "char");
    AddTypes<signed char>(names, "signed char");
    AddTypes<unsigned char>(names, "unsigned char");
    AddTypes<wchar_t>(names, "wchar_t");
    AddTypes<short>(names, "short");
    AddTypes<unsigned short>(names, "unsigned short");
    AddTypes<int>(names, "int");
    AddTypes<unsigned>(names, "unsigned");
    AddTypes<long>(names, "long");
    AddTypes<unsigned long>(names, "unsigned long");
    AddTypes<long long>(names, "long long");
    AddTypes<unsigned long long>(names, "unsigned long long");
    AddTypes<float>(names, "float");
    AddTypes<double>(names, "double");
    AddTypes<long double>(names, "long double");
    AddTypes<bool>(names, "bool");
    AddTypes<std::string>(names, "std::string");
    return names;
}

bool AllDigits(std::string_view text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

template <class T>
std::optional<T> ParseDecimal(std::string_view text)
{
    T value{};
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc{}) return std::nullopt;
    return value;
}

} // namespace

BadCommandArg::BadCommandArg(std::size_t number, const std::string& token, const std::string& typeName)
    : std::invalid_argument("error: arg " + std::to_string(number) + ": cannot convert '" + token + "' to type '" +
                            typeName + "'")
{}

std::string TypeName(const std::type_info& type)
{
    static const TypeNames names = MakeTypeNames();
    const auto entry = names.find(type);
    return entry == names.end() ? "unknown" : entry->second;
}

std::vector<std::string> Tokenise(const std::string& arguments)
{
    using Separator = boost::escaped_list_separator<char>;
    const boost::tokenizer<Separator> pieces(arguments, Separator("", " ", "\"{}"));
    std::vector<std::string> tokens;
    for (const std::string& piece : pieces) {
        std::string token = boost::trim_copy(piece);
        if (!token.empty()) tokens.push_back(std::move(token));
    }
    return tokens;
}

std::optional<std::int32_t> ParseSigned(const std::string& token)
{
    std::string_view number = token;
    if (!number.empty() && (number.front() == '+' || number.front() == '-')) number.remove_prefix(1);
    if (!AllDigits(number)) return std::nullopt;
    // The plus sign is the shell's own; the minus sign belongs to the number.
    return ParseDecimal<std::int32_t>(token.front() == '-' ? std::string_view(token) : number);
}

std::optional<std::uint32_t> ParseUnsigned(const std::string& token)
{
    return AllDigits(token) ? ParseDecimal<std::uint32_t>(token) : std::nullopt;
}

std::optional<bool> ParseBool(const std::string& token)
{
    if (token == "true" || token == "1") return true;
    if (token == "false" || token == "0") return false;
    return std::nullopt;
}

} // namespace cmd::parser
