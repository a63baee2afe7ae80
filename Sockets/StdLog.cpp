#include "Sockets/StdLog.h"

#include "Sockets/Socket.h"

#include <array>
#include <cstdio>
#include <ctime>

void StdoutLog::error(ISocketHandler*, Socket* socket, const std::string& call, int error, const std::string& text,
                      LogLevel level)
{
    constexpr std::array<const char*, 4> Levels = {"Warning", "Error", "Fatal", "Info"};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    const char* const word = Levels[static_cast<std::size_t>(level)];
    if (socket) {
        std::printf("%d-%02d-%02d %02d:%02d:%02d :: fd %d :: %s: %d %s (%s)\n", local.tm_year + 1900, local.tm_mon + 1,
                    local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, socket->GetSocket(), call.c_str(), error,
                    text.c_str(), word);
    } else {
        std::printf("%d-%02d-%02d %02d:%02d:%02d :: %s: %d %s (%s)\n", local.tm_year + 1900, local.tm_mon + 1,
                    local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, call.c_str(), error, text.c_str(), word);
    }
    std::fflush(stdout);
}
