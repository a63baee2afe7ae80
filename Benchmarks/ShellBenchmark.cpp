// The round trip of a shell command on loopback, beside a bare one of the same size.

#include "Audit/Audit.h"
#include "Benchmarks/BareStream.h"
#include "Simulation/Stage/ShellClient.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <boost/asio/io_service.hpp>

#include <string>

int main()
{
    constexpr unsigned int Trips = 20000;
    boost::asio::io_service service;
    cmd::CommandLine shell(service, {boost::asio::ip::address_v4::loopback(), 0}, "ShellBenchmark");
    shell.AddAction(
        "echo", [](const std::string& text) { return text; }, "");
    shell.Start();

    const std::string line = "echo 0123456789abcdef\r\n";
    const std::string reply = "0123456789abcdef\n";
    Samples trips;
    {
        stage::ShellClient client(shell.GetServer().GetEndpoint().port());
        for (unsigned int i = 0; i < Trips; ++i) {
            const double start = NowMicroseconds();
            client.Stream().Send(line);
            client.Stream().TakeBytes(reply.size());
            trips.Add(NowMicroseconds() - start);
        }
    }
    const Samples bare = BareRoundTrips(Bytes(line.begin(), line.end()), Trips);
    const Report report;
    report.Row("shell command, round trip, p50", trips.At(0.5), bare.At(0.5), "us");
    report.Row("shell command, round trip, p99", trips.At(0.99), bare.At(0.99), "us");
    shell.Stop();
}
