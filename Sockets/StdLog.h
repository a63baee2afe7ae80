#pragma once

#include <cstdint>
#include <string>

class ISocketHandler;
class Socket;

enum class LogLevel : std::uint8_t { Warning = 0, Error = 1, Fatal = 2, Info = 3 };

/// Where the sockets report their errors.
class StdLog
{
public:
    virtual ~StdLog() = default;
    /// @param socket null if the error is not of one socket; @param error an errno or a count, as the call has it.
    virtual void error(ISocketHandler* handler, Socket* socket, const std::string& call, int error,
                       const std::string& text, LogLevel level) = 0;
};

/// Prints them on standard output, in local time.
class StdoutLog : public StdLog
{
public:
    void error(ISocketHandler* handler, Socket* socket, const std::string& call, int error, const std::string& text,
               LogLevel level) override;
};
