#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace watch {

/// All that is ever written to the module's shell. None of these changes anything in the module; `tail` changes only
/// what this connection receives.
enum class ShellCommand {
    LocalAndIo,
    LocalAndRouting,
    Patches,
    Slots,
    Routes,
    Clocks,
    ActiveClock,
    Version,
    TailOn,
    TailOff,
};

constexpr std::string_view ShellCommandTexts[] = {
    "sio", "sr", "ps", "rs", "adma/status", "clock/status", "clock/active", "version", "tail true", "tail false",
};

constexpr std::string_view TextOf(ShellCommand command)
{
    return ShellCommandTexts[static_cast<std::size_t>(command)];
}

/// The listings that make one picture, in the order in which they are asked for.
constexpr std::array<ShellCommand, 7> PictureCommands = {
    ShellCommand::LocalAndIo, ShellCommand::LocalAndRouting, ShellCommand::Patches,     ShellCommand::Slots,
    ShellCommand::Routes,     ShellCommand::Clocks,          ShellCommand::ActiveClock,
};

/// The first three come as lines of the log, under `Information`; the others are results.
constexpr bool IsLogged(ShellCommand command)
{
    return command == ShellCommand::LocalAndIo || command == ShellCommand::LocalAndRouting ||
           command == ShellCommand::Patches;
}

} // namespace watch
