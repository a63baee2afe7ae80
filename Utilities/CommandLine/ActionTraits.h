#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

namespace cmd {

class ClientConnection;

namespace action {

/// The std::function that any callable with one signature converts to.
template <class Callable>
using FunctionOf = decltype(std::function(std::declval<Callable>()));

/// What a command's function is: its Result, its Arguments as a tuple of plain values, and its Context, the type of a
/// first argument that the shell supplies itself (std::nullptr_t for a function that wants none).
template <class ContextType, class Callable>
struct ActionTraits : ActionTraits<ContextType, FunctionOf<Callable>>
{};

template <class ResultType, class... Args>
struct ActionTraits<std::nullptr_t, std::function<ResultType(Args...)>>
{
    using Context = std::nullptr_t;
    using Function = std::function<ResultType(Args...)>;
    using Result = ResultType;
    using Arguments = std::tuple<std::decay_t<Args>...>;
};

template <class ContextType, class ResultType, class... Args>
struct ActionTraits<ContextType, std::function<ResultType(ContextType, Args...)>>
{
    using Context = ContextType;
    using Function = std::function<ResultType(ContextType, Args...)>;
    using Result = ResultType;
    using Arguments = std::tuple<std::decay_t<Args>...>;
};

template <class ContextType, class ResultType, class... Args>
struct ActionTraits<ContextType, std::function<ResultType(const ContextType&, Args...)>>
    : ActionTraits<ContextType, std::function<ResultType(ContextType, Args...)>>
{};

/// The context that a function asks for: the calling connection if that is its first argument.
template <class Function>
struct ContextOf
{
    using type = std::nullptr_t;
};

template <class Result, class... Args>
struct ContextOf<std::function<Result(std::shared_ptr<ClientConnection>, Args...)>>
{
    using type = std::shared_ptr<ClientConnection>;
};

template <class Result, class... Args>
struct ContextOf<std::function<Result(const std::shared_ptr<ClientConnection>&, Args...)>>
{
    using type = std::shared_ptr<ClientConnection>;
};

} // namespace action
} // namespace cmd
