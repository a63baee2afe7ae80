#include "MiscSource/SystemUtilities.h"

#include "Audit/Audit.h"
#include "Audit/BoundedShell.h"

#include <cstddef>
#include <fstream>

namespace {

/// More than a log line holds; a tool's error file has no limit.
constexpr std::size_t MostOfErrorFile = 64 * 1024;

std::string ReadErrorFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    std::string text(MostOfErrorFile, '\0');
    file.read(&text[0], static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(file.gcount()));
    return text;
}

} // namespace

int SystemWithStderr(const std::string& command, const std::string& errFile)
{
    AUDIT_LOG(Information, "SystemWithStderr: command:%s, err_file:%s\r\n", command.c_str(), errFile.c_str());
    const std::string line = command + " 2>" + errFile;
    // The shell would run a part of such a line.
    if (line.find('\0') != std::string::npos) return -1;
    const int result =
        RunShell(line, [&command] { AUDIT_LOG(Fault, "SystemWithStderr: %s is still running\r\n", command.c_str()); });
    if (result == 0) return 0;
    AUDIT_STREAM(Fault, "SystemWithStderr Error " << result << " StdErr " << ReadErrorFile(errFile) << "\r\n");
    return result;
}
