// The crash dumps, on their real path.

#include "Simulation/Stage/Module.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace stage;
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr char DumpDirectory[] = "/var/lib/ostrel/crashdumps";

/// Ends a running module by a real crash of one of its threads, and gives what a stack walker reads from the dump.
std::string WalkCrash(bool inMainThread)
{
    Module module;
    ChildProcess& process = module.Process();
    pid_t thread = process.Id();
    if (!inMainThread) {
        for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(process.Id()) + "/task"))
            thread = std::max(thread, std::stoi(entry.path().filename().string()));
    }
    EXPECT_EQ(syscall(SYS_tgkill, process.Id(), thread, SIGSEGV), 0);
    EXPECT_EQ(process.Wait().signal, SIGSEGV);

    const std::string errors = process.Errors();
    const std::string prefix = std::string("MINIDUMP=") + DumpDirectory + "/OrbModuleSim/";
    EXPECT_THAT(errors, HasSubstr(prefix));
    const std::size_t path = errors.find(prefix) + std::string("MINIDUMP=").size();
    ChildProcess walker({{ORB_STACKWALK, errors.substr(path, errors.find('\n', path) - path)}});
    EXPECT_EQ(walker.Wait().Text(), "exit code 0");
    return walker.Output();
}

TEST(CrashDump, NamesTheThreadThatCrashed)
{
    EXPECT_THAT(WalkCrash(true), AllOf(HasSubstr("SIGSEGV"), HasSubstr("Thread 0 (crashed)")));
    EXPECT_THAT(WalkCrash(false),
                AllOf(ContainsRegex("Thread [1-9][0-9]* \\(crashed\\)"), Not(HasSubstr("Thread 0 (crashed)"))));
}

TEST(CrashDump, ADirectoryThatCannotBeMadeEndsTheStart)
{
    fs::remove_all("/var/lib/ostrel");
    std::ofstream("/var/lib/ostrel") << "in the way";
    ChildProcess process(Module::MakeCommand({}));
    EXPECT_EQ(process.Wait().Text(), "exit code 3");
    EXPECT_THAT(process.Errors(), HasSubstr(DumpDirectory));
    fs::remove("/var/lib/ostrel");
}

} // namespace
