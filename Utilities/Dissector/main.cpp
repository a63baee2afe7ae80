// Generates the dissector for Wireshark: its fixed text with the tables of the module of this build.

#include "Utilities/Dissector/CommandTables.h"
#include "Utilities/Dissector/ModelTables.h"

#include <exception>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace {

constexpr char Place[] = "--@TABLES@\n";

std::string ReadFile(const char* path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file) throw std::runtime_error(std::string("cannot read ") + path);
    return text.str();
}

void Generate(const char* frame, const char* output)
{
    const std::string text = ReadFile(frame);
    const std::size_t place = text.find(Place);
    if (place == std::string::npos) throw std::runtime_error(std::string(frame) + " has no place for the tables");

    std::ofstream file(output, std::ios::trunc);
    file << text.substr(0, place);
    WriteModelTables(file);
    WriteCommandTables(file);
    file << text.substr(place + sizeof Place - 1);
    if (!file.flush()) throw std::runtime_error(std::string("cannot write ") + output);
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "Usage: MakeDissector FRAME OUTPUT\n";
        return 2;
    }
    try {
        Generate(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::cerr << "MakeDissector: " << error.what() << "\n";
        return 1;
    }
    return 0;
}
