// What a log call costs: switched off beside the bare test of a byte, and switched on beside a bare write of the same
// line.

#include "Audit/KorvoAudit.h"
#include "Benchmarks/LoadReport.h"
#include "Simulation/Stage/FileDescriptor.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <unistd.h>

using stage::Checked;
using stage::FileDescriptor;

namespace {

constexpr int Runs = 9;
/// So many lines stay below the size at which the log rotates.
constexpr int Lines = 8000;
constexpr int OffCalls = 20000000;

/// While it lives, the standard output goes nowhere: a terminal would be measured otherwise.
class SilentConsole
{
public:
    SilentConsole()
    {
        std::fflush(stdout);
        const FileDescriptor nowhere(Checked(open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null"));
        Checked(dup2(nowhere.Get(), STDOUT_FILENO), "dup2");
    }
    ~SilentConsole()
    {
        std::fflush(stdout);
        dup2(mSaved.Get(), STDOUT_FILENO);
    }
    SilentConsole(const SilentConsole&) = delete;
    SilentConsole& operator=(const SilentConsole&) = delete;

private:
    FileDescriptor mSaved{Checked(dup(STDOUT_FILENO), "dup")};
};

template <class Work>
double NanosecondsEach(int count, Work work)
{
    const double start = NowMicroseconds();
    for (int i = 0; i < count; ++i)
        work(i);
    return (NowMicroseconds() - start) * 1e3 / count;
}

void MeasureOff(const Report& report)
{
    Audit::Instance()->SetEnabled(static_cast<std::uint32_t>(DebugFeature::RouterAudioRoute), 0);
    static std::atomic<std::uint8_t> flag{0};
    Samples log;
    Samples stream;
    Samples bare;
    for (int run = 0; run < Runs; ++run) {
        log.Add(NanosecondsEach(OffCalls, [](int i) { AUDIT_LOG(RouterAudioRoute, "Route %d\n", i); }));
        stream.Add(NanosecondsEach(OffCalls, [](int i) { AUDIT_STREAM(RouterAudioRoute, "Route " << i << '\n'); }));
        bare.Add(NanosecondsEach(OffCalls, [](int i) {
            if (flag.load(std::memory_order_relaxed) != 0) flag = static_cast<std::uint8_t>(i);
        }));
    }
    report.Row("log call, off, printf form", log.At(0.5), bare.At(0.5), "ns");
    report.Row("log call, off, stream form", stream.At(0.5), bare.At(0.5), "ns");
}

void MeasureOn(const Report& report, const std::string& directory)
{
    const std::string path = directory + "/K2.log";
    Samples log;
    Samples stream;
    Samples bare;
    for (int run = 0; run < Runs; ++run) {
        std::filesystem::remove(path);
        std::string line;
        {
            const SilentConsole silent;
            Audit::SetInstance(new KorvoAudit(path));
            log.Add(
                NanosecondsEach(Lines, [](int i) { AUDIT_LOG(Information, "Patch %d of the storm is made\n", i); }));
            Audit::SetInstance(nullptr);
        }
        std::ifstream written(path);
        std::getline(written, line);
        line += '\n';
        std::filesystem::remove(path);
        {
            const SilentConsole silent;
            Audit::SetInstance(new KorvoAudit(path));
            stream.Add(NanosecondsEach(
                Lines, [](int i) { AUDIT_STREAM(Information, "Patch " << i << " of the storm is made\n"); }));
            Audit::SetInstance(nullptr);
        }
        const FileDescriptor file(
            Checked(open((directory + "/bare").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600), "open"));
        bare.Add(NanosecondsEach(Lines, [&](int) {
            if (write(file.Get(), line.data(), line.size()) != static_cast<ssize_t>(line.size())) std::abort();
        }));
    }
    report.Row("log line, on, printf form", log.At(0.5), bare.At(0.5), "ns");
    report.Row("log line, on, stream form", stream.At(0.5), bare.At(0.5), "ns");
}

} // namespace

int main()
{
    char directory[] = "/tmp/LogBenchmarkXXXXXX";
    if (!mkdtemp(directory)) {
        std::perror(directory);
        return 1;
    }
    const Report report;
    MeasureOff(report);
    MeasureOn(report, directory);
    std::filesystem::remove_all(directory);
}
