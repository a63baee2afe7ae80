#include "OrbModule/Inc/RunUntilStopped.h"

#include "Audit/Audit.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <exception>

void RunUntilStopped(boost::asio::io_service& service, cmd::CommandLine& shell)
{
    do {
        try {
            shell.Run();
        } catch (const std::exception& error) {
            AUDIT_LOG(Fault, "Exception on the main service: %s\r\n", error.what());
        }
    } while (!service.stopped());
}
