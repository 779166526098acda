#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
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
    /** The block of the unit at which the file system begins; nothing: to be found out. */
    std::optional<uint64_t> first_block;
    /** Files of fewer extents, or fewer bytes, are left alone. */
    size_t min_extents = 0;
    uint64_t min_size = 0;
    /** The most zones that a run may take; nothing: as many as there are. */
    std::optional<size_t> limit;
    bool dry_run = false;
    bool yes = false;
    /** Seconds that exercise waits for the driver's drop event; 0: it does not wait. */
    unsigned drop_event = 0;
    bool raw = false;
    bool log = false;
    bool json = false;
    /** Where explain writes its page; empty: nowhere. */
    std::string html;
    bool table = false;
    bool restart = false;
    bool help = false;
    bool version = false;
};

/** Throws UsageError. */
Options parseOptions(int argc, char** argv);

/** The help: for the command that `options` name, or, if they name none, for all. */
std::string describeUsage(const Options& options);

}  // namespace fboctl
