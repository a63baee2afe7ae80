// Injects faults around the module for minutes; after each round everything must work as before.

#include "Simulation/Soak/Mischief.h"
#include "Simulation/Stage/RigProgram.h"

#include <iostream>
#include <random>
#include <thread>

namespace po = boost::program_options;
using namespace soak;

namespace {

constexpr std::chrono::seconds RoundTime{20};
constexpr int WarmUpRounds = 2;

/// @return false if the module runs no more.
bool Settle(Findings& findings, Unit& unit)
{
    findings.Tell("everything is mended");
    try {
        unit.Settle();
        findings.Tell("everything is in order");
    } catch (const std::exception& missing) {
        findings.Violation(std::string("not in order again: ") + missing.what() + "\n" + unit.Describe());
    }
    return unit.Look();
}

void CheckVitals(Findings& findings, const Vitals& line, Unit& unit)
{
    const Vitals vitals = unit.AwaitVitals(line);
    findings.Tell("after the warm-up: " + line.Text() + "; now: " + vitals.Text());
    if (!vitals.HasHandlesOf(line)) {
        findings.Violation("threads or descriptors: " + line.Text() + ", now " + vitals.Text() + "\n" + vitals.sockets);
    }
    if (!vitals.HasMemoryOf(line)) {
        findings.Violation("more than 5 % more is allocated, or more than 16 MiB resident: " + line.Text() + ", now " +
                           vitals.Text());
    }
}

int Soak(double minutes, unsigned int seed, const std::string& logPath)
{
    Findings findings;
    findings.Tell("seed " + std::to_string(seed));
    Surroundings surroundings(findings);
    HeartbeatWatch watch(findings);
    {
        Unit unit(findings, surroundings, watch, logPath);
        Mischief mischief(findings, surroundings, watch, unit, seed);
        bool runs = Settle(findings, unit);
        Vitals line;
        // Each fault has come twice before the reference is taken.
        for (int round = 0; runs && round < WarmUpRounds; ++round) {
            mischief.PlayAll();
            runs = Settle(findings, unit);
            if (!runs) break;
            // What the last connections held is given back by then.
            std::this_thread::sleep_for(std::chrono::seconds(10));
            const Vitals vitals = unit.GetVitals();
            if (vitals.allocatedKiB > line.allocatedKiB) line = vitals;
        }
        findings.Tell("the warm-up is over: " + line.Text());
        // The warm-up does not count for a round.
        do {
            if (!runs) break;
            mischief.PlayFor(RoundTime);
            runs = Settle(findings, unit);
            if (runs) CheckVitals(findings, line, unit);
        } while (findings.GetSeconds() < 60 * minutes);
        findings.Tell(watch.Summary());
        if (runs) unit.Stop();
    }
    if (findings.GetViolations() == 0) {
        findings.Tell("all held");
        return 0;
    }
    findings.Tell(std::to_string(findings.GetViolations()) + " violations; to see them again: --seed " +
                  std::to_string(seed));
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    po::options_description description("Usage: Soak MINUTES [option...], in the rig");
    // clang-format off
    description.add_options()
        ("help", "this text")
        ("minutes", po::value<double>()->default_value(2), "how long trouble is made, at least")
        ("log", po::value<std::string>()->default_value(""), "a file for all that the module prints")
        ("seed", po::value<unsigned int>(), "plays the troubles of an earlier run again");
    // clang-format on
    po::positional_options_description positional;
    positional.add("minutes", 1);
    return stage::RunInRig(
        "soak", argc, argv, description,
        [](const po::variables_map& values) {
            const unsigned int seed = values.count("seed") ? values["seed"].as<unsigned int>() : std::random_device()();
            return Soak(values["minutes"].as<double>(), seed, values["log"].as<std::string>());
        },
        positional);
}
