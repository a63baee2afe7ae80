#pragma once

#include "Utilities/CommandLine/NodeManager.h"

#include <sstream>
#include <string>
#include <vector>

/// How the help of each command begins.
inline std::vector<std::string> BeginningsOfHelp(const cmd::NodeManager& tree)
{
    std::stringstream text;
    tree.PrintHelp(text);
    std::vector<std::string> lines;
    for (std::string name, help; text >> name >> std::ws && std::getline(text, help);)
        lines.push_back(name + ' ' + help.substr(0, 31));
    return lines;
}
