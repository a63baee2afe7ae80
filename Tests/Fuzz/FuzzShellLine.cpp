// Lines as a shell client may send them, against commands of every kind of argument.

#include "Utilities/CommandLine/CommandLine.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

class Shell
{
public:
    Shell()
    {
        AddNumber<int>("int");
        AddNumber<long>("long");
        AddNumber<short>("short");
        AddNumber<signed char>("schar");
        AddNumber<unsigned>("unsigned");
        AddNumber<unsigned long>("ulong");
        AddNumber<unsigned short>("ushort");
        AddNumber<unsigned char>("uchar");
        mShell.AddAction(
            "bool", [](bool value) { return value; }, "A flag.");
        mShell.AddAction(
            "text", [](const std::string& text) { return text; }, "A text\nas it came");
        mShell.AddAction(
            "none", [] {}, "");
        mShell.AddAction(
            "mixed",
            [](unsigned long hid, unsigned short index, int flag, const std::string& text, bool last) {
                return std::to_string(hid) + std::to_string(index) + std::to_string(flag) + text + (last ? "+" : "-");
            },
            "All of them");
        const auto node = std::make_shared<cmd::Node>();
        node->Add("adma", {cmd::action::MakeAction(
                              "patch", [](int a, int b) { return a == b; }, "Patch. More.")});
        node->Add("adma/deep", {cmd::action::MakeAction(
                                   "status", [] { return "routes"; }, "Status")});
        mShell.AddNode(node);
    }

    void Execute(const std::string& line)
    {
        const std::string result = mShell.Execute(line);
        // A result is a text with a line end, or nothing.
        if (!result.empty() && result.back() != '\n') std::abort();
    }

private:
    template <class T>
    void AddNumber(const std::string& name)
    {
        mShell.AddAction(
            name, [](T value) { return value; }, "A number");
    }

    boost::asio::io_service mService;
    cmd::CommandLine mShell{mService, {boost::asio::ip::address_v4::loopback(), 0}, ""};
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Shell shell;
    shell.Execute(std::string(reinterpret_cast<const char*>(data), size));
    return 0;
}
