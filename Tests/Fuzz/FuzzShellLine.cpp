// Lines as a shell client may send them, against commands of every kind of argument.

#include "Tests/Fuzz/Require.h"
#include "Utilities/CommandLine/CommandLine.h"

#include <cstdint>
#include <memory>
#include <string>

namespace {

struct Shell
{
    Shell()
    {
        const auto add = [this](const char* name, auto action, const char* help = "A number") {
            shell.AddAction(name, action, help);
        };
        add("int", [](int value) { return value; });
        add("long", [](long value) { return value; });
        add("unsigned", [](unsigned value) { return value; });
        add("small", [](signed char a, unsigned char b, short c) { return a + b + c; });
        add("bool", [](bool value) { return value; });
        add("text", [](const std::string& text) { return text; });
        add("none", [] {});
        add("mixed", [](unsigned long hid, unsigned short index, int flag, const std::string& text, bool last) {
            return std::to_string(hid) + std::to_string(index) + std::to_string(flag) + text + (last ? "+" : "-");
        });
        const auto node = std::make_shared<cmd::Node>();
        node->Add("adma", {cmd::action::MakeAction(
                              "patch", [](int a, int b) { return a == b; }, "Patch. More.\nLine")});
        shell.AddNode(node);
    }

    boost::asio::io_service service;
    cmd::CommandLine shell{service, {boost::asio::ip::address_v4::loopback(), 0}, ""};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Shell shell;
    // A result is a text with a line end, or nothing.
    const std::string result = shell.shell.Execute(std::string(reinterpret_cast<const char*>(data), size));
    Require(result.empty() || result.back() == '\n');
    return 0;
}
