#include <cstdint>
#include <cstdio>
#include <exception>

#include "Commands.h"
#include "Options.h"
#include "Platform.h"

namespace fboctl {

namespace {

struct Command {
    const char* name;
    size_t least_arguments;
    size_t most_arguments;
    ExitStatus (*run)(const Options& options);
};

constexpr Command kCommands[] = {
        {"support", 0, 0, support},
        {"defrag", 1, SIZE_MAX, defrag},
        {"trigger", 1, 1, trigger},
        {"stop", 0, 0, control},
        {"continue", 0, 0, control},
        {"version-ctrl", 1, 1, versionControl},
        {"gc", 0, 0, collectGarbage},
        {"wear", 0, 0, wear},
        {"eua support", 0, 0, euaSupport},
        {"eua size", 0, 0, euaSize},
        {"eua erase", 1, 1, euaErase},
        {"doctor", 0, 1, doctor},
        {"snapshot backup", 0, 0, snapshotBackup},
        {"snapshot drop", 0, 0, snapshotDrop},
        {"snapshot status", 0, 0, snapshotStatus},
        {"snapshot watch", 0, 0, snapshotWatch},
        {"snapshot event", 0, 1, snapshotEvent},
};

const Command& findCommand(const Options& options) {
    for (const Command& command : kCommands) {
        if (options.command == command.name) return command;
    }
    throw UsageError(options.command.empty() ? "no command"
                                             : "no command \"" + options.command + "\"");
}

ExitStatus run(const Options& options) {
    if (options.help) {
        fputs(kHelp, stdout);
        return kDone;
    }
    if (options.sim.device == "list") {
        fputs(describeSim().c_str(), stdout);
        return kDone;
    }
    const Command& command = findCommand(options);
    const size_t count = options.arguments.size();
    if (count < command.least_arguments) {
        throw UsageError(options.command + ": something is missing after it");
    }
    if (count > command.most_arguments) throw UsageError(options.command + ": too much after it");
    return command.run(options);
}

}  // namespace

}  // namespace fboctl

int main(int argc, char** argv) {
    using namespace fboctl;
    try {
        return run(parseOptions(argc, argv));
    } catch (const std::invalid_argument& error) {
        if (*error.what() != '\0') fprintf(stderr, "fboctl: %s\n", error.what());
        fprintf(stderr, "fboctl: see fboctl --help\n");
        return kWrongUsage;
    } catch (const std::exception& error) {
        fprintf(stderr, "fboctl: %s\n", error.what());
        return kNoAnswer;
    }
}
