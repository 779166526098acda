#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "Platform.h"

namespace fboctl {

/** The exit status of the program. */
enum ExitStatus : int {
    kDone = 0,
    /** The answer is no, or what was asked for failed. */
    kNo = 1,
    kWrongUsage = 2,
    /** There is no service, or an error escaped a call of it. */
    kNoAnswer = 3,
};

/** The command line does not say what to do. */
struct UsageError : std::invalid_argument {
    using std::invalid_argument::invalid_argument;
};

struct Options {
    std::string command;
    std::vector<std::string> arguments;
    SimOptions sim;
    uint64_t first_block = 0;
    bool raw = false;
    bool log = false;
    bool json = false;
    bool restart = false;
    bool help = false;
};

/** Throws UsageError. */
Options parseOptions(int argc, char** argv);

/** The text for --help. */
std::string describeUsage();

}  // namespace fboctl
