#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <typeinfo>
#include <vector>

// From what was typed to typed arguments.

namespace cmd::parser {

/// A token that is no value of the type of its argument. Its text is the whole error line for the user.
class BadCommandArg : public std::invalid_argument
{
public:
    /// @param number of the token, counted from 1.
    BadCommandArg(std::size_t number, const std::string& token, const std::string& typeName);
};

/// Name of a type in help and error texts, without "std::"; "unknown" for a type that the table lacks.
std::string TypeName(const std::type_info& type);

/// Cuts the arguments of a line into tokens at blanks. Within double quotes or braces a blank does not separate;
/// the quotes themselves go, and so do empty tokens.
std::vector<std::string> Tokenise(const std::string& arguments);

/// The value that the token is; nothing if it is none of that type. Numbers are decimal and limited to 32 bits, as
/// `long` is on the target.
template <class T>
std::optional<T> Parse(const std::string& token);
template <>
std::optional<std::int32_t> Parse(const std::string& token);
template <>
std::optional<std::uint32_t> Parse(const std::string& token);
template <>
std::optional<bool> Parse(const std::string& token);
template <>
std::optional<std::string> Parse(const std::string& token);

/// The type that a token is read as before it is stored, perhaps narrowed, in an argument of type T.
template <class T>
using ParsedAs = std::conditional_t<std::is_same_v<T, std::string> || std::is_same_v<T, bool>, T,
                                    std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>>;

/// Throws BadCommandArg.
template <class T>
T Convert(std::size_t number, const std::string& token)
{
    static_assert(std::is_integral_v<T> || std::is_same_v<T, std::string>, "the shell reads no such type");
    const auto value = Parse<ParsedAs<T>>(token);
    if (!value) throw BadCommandArg(number, token, TypeName(typeid(T)));
    return static_cast<T>(*value);
}

} // namespace cmd::parser
