#include "Simulation/Peers/Control.h"
#include "Simulation/Peers/Peers.h"

#include <boost/asio/io_service.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/program_options.hpp>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace options = boost::program_options;

namespace {

struct Settings
{
    std::string kind;
    std::string control;
    std::string hid;
    std::string ioHid;
    std::string own = "1.63.1.0";
    std::string module = "1.63.5.0";
    std::string moduleRack = "0";
    std::string rack = "0";
    std::string interface = "eth0";
    unsigned link = 0;
    unsigned port = 0;
    unsigned localPort = peers::Place().localPort;
    std::vector<std::string> lines;
    bool appear = false;
};

std::unique_ptr<peers::Node> Build(boost::asio::io_service& service, const Settings& settings)
{
    peers::Place place;
    const std::uint32_t hid = settings.hid.empty() ? 0 : peers::ToNumber(settings.hid);
    if (settings.localPort > 0xFFFF) throw peers::LineError("no such port");
    place.localPort = static_cast<std::uint16_t>(settings.localPort);
    if (settings.kind == "orb" || settings.kind == "update") {
        place.own = peers::ToAddress(settings.own);
        place.module = peers::ToAddress(settings.module);
        if (settings.kind == "update") return std::make_unique<peers::UpdateService>(service, place);
        const std::uint32_t ioHid = settings.ioHid.empty() ? (hid & 0xFFFF0000) + 1 : peers::ToNumber(settings.ioHid);
        return std::make_unique<peers::OrbRouter>(service, place, hid, ioHid);
    }
    peers::Cable cable;
    cable.moduleRack = peers::ToNumber(settings.moduleRack);
    cable.rack = peers::ToNumber(settings.rack);
    if (settings.link > 1 || settings.port > 0xFF) throw peers::LineError("no such link or port");
    cable.link = static_cast<std::uint8_t>(settings.link);
    cable.port = static_cast<std::uint8_t>(settings.port);
    cable.interface = settings.interface;
    if (settings.kind == "hub") return std::make_unique<peers::Hub>(service, place, cable, hid);
    if (settings.kind == "router") return std::make_unique<peers::MasterRouter>(service, place, cable, hid);
    return std::make_unique<peers::Box>(service, place, cable, hid, peers::ToBoxKind(settings.kind));
}

bool Parse(int argc, char** argv, Settings& settings)
{
    options::options_description description("Options");
    description.add_options()("help", "this text")("kind", options::value(&settings.kind),
                                                   "orb, update, fixed, modular, aoip, module, hub or router")(
        "control", options::value(&settings.control)->required(), "path of the control socket")(
        "hid", options::value(&settings.hid), "identity, as 0x00120001")("io-hid", options::value(&settings.ioHid),
                                                                         "identity of the Orb router's internal I/O")(
        "own", options::value(&settings.own), "own address (orb, update)")("module", options::value(&settings.module),
                                                                           "address of the module (orb, update)")(
        "module-rack", options::value(&settings.moduleRack),
        "rack id of the module (link peers)")("rack", options::value(&settings.rack), "own rack id (link peers)")(
        "link", options::value(&settings.link), "link index of the module: 0 primary, 1 secondary (link peers)")(
        "port", options::value(&settings.port), "own gigabit port (link peers)")(
        "interface", options::value(&settings.interface), "own interface (link peers)")(
        "local-port", options::value(&settings.localPort), "where the local stream meets, else 55000")(
        "do", options::value(&settings.lines)->composing(), "a line of the control channel to begin with")(
        "appear", options::bool_switch(&settings.appear), "appear at once");
    options::positional_options_description positional;
    positional.add("kind", 1);
    options::variables_map values;
    options::store(options::command_line_parser(argc, argv).options(description).positional(positional).run(), values);
    if (values.count("help") != 0) {
        std::cout << "Usage: Peer KIND --control PATH [option...]\n" << description;
        return false;
    }
    options::notify(values);
    return true;
}

int Run(int argc, char** argv)
{
    Settings settings;
    if (!Parse(argc, argv, settings)) return 0;
    boost::asio::io_service service;
    const auto node = Build(service, settings);
    for (const std::string& line : settings.lines)
        node->Handle(line, [&line](const std::string& answer) {
            if (answer.compare(0, 6, "error:") == 0) throw std::runtime_error(line + ": " + answer);
        });
    if (settings.appear) node->Appear();
    const peers::Control control(
        service, settings.control,
        [&node](const std::string& line, const peers::Reply& reply) { node->Handle(line, reply); });
    boost::asio::signal_set signals(service, SIGINT, SIGTERM);
    signals.async_wait([&service](const boost::system::error_code&, int) { service.stop(); });
    std::cout << "ready" << std::endl;
    service.run();
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    try {
        return Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "Peer: " << error.what() << "\n";
        return 2;
    }
}
