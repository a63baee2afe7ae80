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

// The value of the token; nothing if it is none. Numbers are decimal, of at most 32 bits, as `long` on the target.
std::optional<std::int32_t> ParseSigned(const std::string& token);
std::optional<std::uint32_t> ParseUnsigned(const std::string& token);
std::optional<bool> ParseBool(const std::string& token);

/// The token as an argument of type T, perhaps narrowed. Throws BadCommandArg.
template <class T>
T Convert(std::size_t number, const std::string& token)
{
    [[maybe_unused]] const auto checked = [&](const auto& value) {
        if (!value) throw BadCommandArg(number, token, TypeName(typeid(T)));
        return static_cast<T>(*value);
    };
    static_assert(std::is_integral_v<T> || std::is_same_v<T, std::string>, "the shell reads no such type");
    if constexpr (std::is_same_v<T, std::string>) {
        return token;
    } else if constexpr (std::is_same_v<T, bool>) {
        return checked(ParseBool(token));
    } else if constexpr (std::is_signed_v<T>) {
        return checked(ParseSigned(token));
    } else {
        return checked(ParseUnsigned(token));
    }
}

} // namespace cmd::parser
