#include "Simulation/Soak/Surroundings.h"

#include "Simulation/Stage/ChildProcess.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace stage;

namespace soak {

namespace {

constexpr char Tools[] = "/tmp/soak-tools";
constexpr char LogDirectory[] = "/var/log";
constexpr char Filling[] = "/var/log/filling";

/// It hangs for 10 s at most, and goes on as soon as its manner is taken away.
constexpr char Wrapper[] = R"(#!/bin/sh
tool=${0##*/}
manner=/tmp/soak-tools/$tool.manner
case $(cat "$manner" 2>/dev/null) in
fail) echo "$tool fails" >&2; exit 1 ;;
hang) i=0; while [ "$i" -lt 100 ] && [ -s "$manner" ]; do sleep 0.1; i=$((i + 1)); done ;;
esac
PATH=${PATH#*:}
exec "$tool" "$@"
)";

// A random number picks one packet in 20 to be lost on its way in, and one in 4 to take a slow way out, on which later
// ones overtake it. In a filter's machine code: load the number, compare, give one of two results.
constexpr char LossFilter[] = "'4,32 0 0 4294963256,37 1 0 214748364,6 0 0 2,6 0 0 0'";
constexpr char SlowWayFilter[] = "'4,32 0 0 4294963256,37 1 0 1073741824,6 0 0 65538,6 0 0 65537'";

} // namespace

bool RunLine(Findings& findings, const std::string& line)
{
    ChildProcess shell({{"sh", "-c", line}});
    const Ending ending = shell.Wait(Milliseconds(30000));
    if (ending.signal == 0 && ending.exitCode == 0) return true;
    findings.Tell("'" + line + "': " + ending.Text() + ", " + shell.Errors());
    return false;
}

Surroundings::Surroundings(Findings& findings) : mFindings(findings)
{
    Checked(::mkdir(Tools, 0755), Tools);
    for (const std::string tool : {"ifconfig", "route", "gzip"}) {
        const std::string path = std::string(Tools) + "/" + tool;
        std::ofstream(path) << Wrapper;
        Checked(::chmod(path.c_str(), 0755), path);
    }
    Checked(::mount("tmpfs", LogDirectory, "tmpfs", 0, "size=8m"), LogDirectory);

    // Where the kernel has netem, it does all three at once.
    mHasNetem = ::system("tc qdisc add dev lo root netem delay 1ms 2>/dev/null && tc qdisc del dev lo root") == 0;
    mFindings.Tell(mHasNetem ? "wires are spoiled by netem"
                             : "this kernel has no netem: packets are lost by a random filter, and delayed and "
                               "reordered by a slow class beside a fast one");
}

std::map<std::string, std::string> Surroundings::GetEnvironment() const
{
    const char* const path = std::getenv("PATH");
    // Without the caches of the threads, in which the allocator counts what is free as if it were in use.
    return {{"GLIBC_TUNABLES", "glibc.malloc.tcache_count=0"},
            {"PATH", std::string(Tools) + ":" + (path ? path : "/usr/sbin:/usr/bin:/sbin:/bin")}};
}

void Surroundings::BreakTool(const std::string& tool, const std::string& fault)
{
    const std::string path = std::string(Tools) + "/" + tool + ".manner";
    std::ofstream(path) << fault << std::flush;
}

void Surroundings::FillDisk()
{
    const FileDescriptor file(Checked(::open(Filling, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), Filling));
    for (std::string block(65536, 'x'); !block.empty();) {
        // The last bytes too.
        if (::write(file.Get(), block.data(), block.size()) <= 0) block.resize(block.size() / 2);
    }
}

void Surroundings::FreeDisk()
{
    ::unlink(Filling);
}

void Surroundings::DisturbWire(const std::string& interface)
{
    const std::string dev = " dev " + interface + " ";
    if (mHasNetem) {
        RunLine(mFindings, "tc qdisc add" + dev + "root netem delay 20ms 15ms loss 5% reorder 25%");
        return;
    }
    RunLine(mFindings,
            "tc qdisc add" + dev + "clsact && tc filter add" + dev + "ingress bpf da bytecode " + LossFilter);
    RunLine(mFindings, "tc qdisc add" + dev + "root handle 1: htb default 1 r2q 1000 && tc class add" + dev +
                           "parent 1: classid 1:1 htb rate 100mbit && tc class add" + dev +
                           "parent 1: classid 1:2 htb rate 400kbit burst 200b cburst 200b && tc filter add" + dev +
                           "parent 1: bpf bytecode " + SlowWayFilter);
}

void Surroundings::MendWire(const std::string& interface)
{
    RunLine(mFindings, "tc qdisc del dev " + interface + " root");
    if (!mHasNetem) RunLine(mFindings, "tc qdisc del dev " + interface + " clsact");
}

} // namespace soak
