#include <cstdint>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

#include "Commands.h"
#include "Options.h"
#include "Platform.h"

namespace fboctl {

namespace {

const Command& findCommand(const Options& options) {
    for (const Command& command : kCommands) {
        if (options.command == command.name) return command;
    }
    throw UsageError(options.command.empty() ? "no command"
                                             : "no command \"" + options.command + "\"");
}

/** Throws UsageError unless the command takes as many arguments as `count`. */
void checkArguments(const Command& command, size_t count) {
    const std::string_view arguments = command.arguments;
    const size_t named = arguments.empty() ? 0 : 1;
    const size_t least = arguments.substr(0, 1) == "[" ? 0 : named;
    const size_t most = arguments.find("…") == std::string_view::npos ? named : SIZE_MAX;
    if (count < least)
        throw UsageError(std::string(command.name) + ": something is missing after it");
    if (count > most) throw UsageError(std::string(command.name) + ": too much after it");
}

ExitStatus carryOut(const Options& options) {
    if (options.help) {
        fputs(describeUsage().c_str(), stdout);
        return kDone;
    }
    if (options.sim.device == "list") {
        fputs(describeSim().c_str(), stdout);
        return kDone;
    }
    const Command& command = findCommand(options);
    checkArguments(command, options.arguments.size());
    return command.run(options);
}

}  // namespace

}  // namespace fboctl

int main(int argc, char** argv) {
    using namespace fboctl;
    try {
        return carryOut(parseOptions(argc, argv));
    } catch (const std::invalid_argument& error) {
        if (*error.what() != '\0') fprintf(stderr, "fboctl: %s\n", error.what());
        fprintf(stderr, "fboctl: see fboctl --help\n");
        return kWrongUsage;
    } catch (const std::exception& error) {
        fprintf(stderr, "fboctl: %s\n", error.what());
        return kNoAnswer;
    }
}
