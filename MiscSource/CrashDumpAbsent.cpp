// For builds without the dump client.

#include "MiscSource/CrashDumpHandler.h"

struct CrashDumpHandler::Client
{};

CrashDumpHandler::CrashDumpHandler(const std::string&, const std::string&) {}

CrashDumpHandler::~CrashDumpHandler() = default;

bool CrashDumpHandler::WritesDumps()
{
    return false;
}
