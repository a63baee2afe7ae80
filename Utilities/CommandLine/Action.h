#pragma once

#include "Utilities/CommandLine/ActionTraits.h"
#include "Utilities/CommandLine/Parser.h"

#include <boost/any.hpp>

#include <sstream>
#include <string>
#include <typeinfo>
#include <vector>

namespace cmd::action {

/// One command of the shell: a name, a help text and a typed function. Runs on the thread of the shell, which is the
/// main service's. Made by MakeAction.
class Action
{
public:
    virtual ~Action() = default;
    Action(const Action&) = delete;
    Action& operator=(const Action&) = delete;

    /// Runs the command with the text after its name. No input makes it throw: errors are reported in the result. A
    /// context of the wrong type gives an empty result and a line on standard error.
    std::string Run(const std::string& arguments, const boost::any& context) const;

    const std::string& GetId() const { return mId; }
    const std::string& GetBrief() const { return mHelp.mBrief; }
    const std::string& GetFull() const { return mHelp.mFull; }

protected:
    /// @param usage the types of the arguments, as the help shows them.
    Action(const std::string& id, const std::string& help, const std::string& usage);

    std::string CountError(std::size_t expected, std::size_t given) const;

private:
    struct Help
    {
        std::string mArgs;
        std::string mBrief;
        std::string mFull;
    };

    virtual std::string Invoke(const std::vector<std::string>& tokens, const boost::any& context) const = 0;

    static Help MakeHelp(const std::string& id, const std::string& help, const std::string& usage);

    std::string mId;
    Help mHelp;
};

/// "'unsigned' 'string'" for a tuple of such arguments.
template <class Arguments>
struct Usage;

template <class... Args>
struct Usage<std::tuple<Args...>>
{
    static std::string Text()
    {
        std::string text;
        ((text += (text.empty() ? "'" : " '") + parser::TypeName(typeid(Args)) + "'"), ...);
        return text;
    }
};

/// The command of one signature.
template <class Traits>
class ActionN : public Action
{
    using Context = typename Traits::Context;
    using Function = typename Traits::Function;
    using Result = typename Traits::Result;
    using Arguments = typename Traits::Arguments;
    static constexpr std::size_t Count = std::tuple_size_v<Arguments>;

public:
    ActionN(const std::string& id, const Function& function, const std::string& help)
        : Action(id, help, Usage<Arguments>::Text()), mFunction(function)
    {}

private:
    std::string Invoke(const std::vector<std::string>& tokens, const boost::any& context) const override
    {
        if (tokens.size() != Count) return CountError(Count, tokens.size());
        Arguments arguments;
        try {
            ConvertAll(tokens, arguments, std::make_index_sequence<Count>{});
        } catch (const parser::BadCommandArg& error) {
            return error.what();
        }
        const auto call = [&](const auto&... values) { return CallWith(context, values...); };
        if constexpr (std::is_void_v<Result>) {
            std::apply(call, arguments);
            return {};
        } else {
            return ResultText(std::apply(call, arguments));
        }
    }

    template <std::size_t... Index>
    static void ConvertAll([[maybe_unused]] const std::vector<std::string>& tokens,
                           [[maybe_unused]] Arguments& arguments, std::index_sequence<Index...>)
    {
        ((std::get<Index>(arguments) =
              parser::Convert<std::tuple_element_t<Index, Arguments>>(Index + 1, tokens[Index])),
         ...);
    }

    template <class... Values>
    Result CallWith([[maybe_unused]] const boost::any& context, const Values&... values) const
    {
        if constexpr (std::is_same_v<Context, std::nullptr_t>) {
            return mFunction(values...);
        } else {
            return mFunction(boost::any_cast<Context>(context), values...);
        }
    }

    template <class Value>
    static std::string ResultText(const Value& result)
    {
        if constexpr (std::is_convertible_v<Value, std::string>) {
            return result;
        } else {
            std::ostringstream text;
            text << std::boolalpha << result;
            return text.str();
        }
    }

    const Function mFunction;
};

/// A command from any callable with one signature. Its arguments are integers, bool and std::string, by value or by
/// constant reference; before them it may take the calling connection as a std::shared_ptr<ClientConnection>. What it
/// returns is the result the user sees: nothing, a text, or what can be written to a stream.
/// @param help the text up to the first full stop or line end is the brief help of the listing.
template <class Callable>
std::shared_ptr<Action> MakeAction(const std::string& id, Callable&& callable, const std::string& help)
{
    using Function = FunctionOf<std::decay_t<Callable>>;
    using Traits = ActionTraits<typename ContextOf<Function>::type, Function>;
    return std::make_shared<ActionN<Traits>>(id, typename Traits::Function(std::forward<Callable>(callable)), help);
}

/// The same for a member function of an object that lives as long as the command.
template <class Object, class Class, class Result, class... Args>
std::shared_ptr<Action> MakeAction(const std::string& id, Object* object, Result (Class::*function)(Args...),
                                   const std::string& help)
{
    return MakeAction(
        id, [object, function](Args... arguments) { return (object->*function)(arguments...); }, help);
}
template <class Object, class Class, class Result, class... Args>
std::shared_ptr<Action> MakeAction(const std::string& id, const Object* object,
                                   Result (Class::*function)(Args...) const, const std::string& help)
{
    return MakeAction(
        id, [object, function](Args... arguments) { return (object->*function)(arguments...); }, help);
}

} // namespace cmd::action
