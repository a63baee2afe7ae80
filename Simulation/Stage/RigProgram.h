#pragma once

#include <boost/program_options.hpp>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

namespace stage {

/// The frame of a program that plays in the rig: its options, "--help", and what ends it early.
/// @param play takes the options and gives the exit code.
/// @return 2 outside the rig, for options that cannot be, and for what play throws.
template <class Play>
int RunInRig(const std::string& name, int argc, char** argv,
             const boost::program_options::options_description& description, Play play,
             const boost::program_options::positional_options_description& positional = {})
{
    namespace po = boost::program_options;
    std::signal(SIGPIPE, SIG_IGN);
    try {
        po::variables_map values;
        po::store(po::command_line_parser(argc, argv).options(description).positional(positional).run(), values);
        po::notify(values);
        if (values.count("help")) {
            std::cout << description;
            return 0;
        }
        if (!std::getenv("ORB_RIG")) {
            std::cerr << name << ": this is not the rig; use scripts/rig" << std::endl;
            return 2;
        }
        return play(values);
    } catch (const std::exception& error) {
        std::cerr << name << ": " << error.what() << std::endl;
        return 2;
    }
}

} // namespace stage
