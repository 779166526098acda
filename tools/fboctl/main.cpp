#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include <android-base/strings.h>

#include "Commands.h"
#include "Options.h"
#include "Platform.h"
#include "Session.h"

namespace fboctl {

namespace {

/** How many letters have to be changed, added or left out to make one text of the other. */
size_t distance(const std::string& one, const std::string& other) {
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

const Command& findCommand(const Options& options) {
    const std::string& name = options.command;
    if (name.empty()) throw UsageError("no command");
    const auto is_closer = [&](const Command& one, const Command& other) {
        return distance(name, one.name) < distance(name, other.name);
    };
    const Command* const nearest =
            std::min_element(std::begin(kCommands), std::end(kCommands), is_closer);
    if (name == nearest->name) return *nearest;
    std::string forms;
    for (const Command& command : kCommands) {
        if (!android::base::StartsWith(command.name, name + " ")) continue;
        forms += (forms.empty() ? "" : ", ") + std::string(command.name);
    }
    if (!forms.empty()) throw UsageError("no command \"" + name + "\"; there are " + forms);
    const bool is_close = distance(name, nearest->name) <= name.size() / 3 + 1;
    throw UsageError("no command \"" + name + "\"" +
                     (is_close ? std::string("; did you mean ") + nearest->name + "?" : ""));
}

/** Throws UsageError unless the command takes as many arguments as `count`. */
void checkArguments(const Command& command, size_t count) {
    size_t least = 0;
    size_t most = 0;
    for (const std::string& word : android::base::Split(command.arguments, " ")) {
        if (word.empty()) continue;
        if (word[0] != '[') ++least;
        most = android::base::EndsWith(word, "…") ? SIZE_MAX : most + 1;
    }
    if (count < least) {
        throw UsageError(std::string(command.name) + ": " + command.arguments +
                         " is missing after it");
    }
    if (count > most) throw UsageError(std::string(command.name) + ": too much after it");
}

ExitStatus carryOut(const Options& options) {
    if (options.help) {
        fputs(describeUsage(options).c_str(), stdout);
        return kDone;
    }
    if (options.version) {
        printf("fboctl for %s\n", IFbo::descriptor);
        return kDone;
    }
    if (options.sim.device == "list") {
        if (!options.command.empty()) throw UsageError("--sim list takes no command");
        fputs(describeSim().c_str(), stdout);
        return kDone;
    }
    const Command& command = findCommand(options);
    checkArguments(command, options.arguments.size());
    return command.run(options);
}

/** Has no file that is opened later become a stream that the caller has closed. */
void fillClosedStreams() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) >= 0) continue;
        // Using it fails all the same: it is open for what is not done with it.
        open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

/** The status to end with: what was done is not done if nobody has got to know or it is lost. */
int conclude(int status) {
    const bool is_flushed = fflush(stdout) == 0;
    const bool is_written = is_flushed && ferror(stdout) == 0;
    if (!is_written) {
        fprintf(stderr, "fboctl: standard output: %s\n",
                is_flushed ? "something is missing from it" : strerror(errno));
    }
    return status == kDone && (!is_written || isStateLost()) ? kNo : status;
}

int runProgram(int argc, char** argv) {
    Options options;
    try {
        options = parseOptions(argc, argv);
        return carryOut(options);
    } catch (const std::invalid_argument& error) {
        if (*error.what() != '\0') fprintf(stderr, "fboctl: %s\n", error.what());
        fprintf(stderr, "fboctl: see fboctl --help\n");
        return kWrongUsage;
    } catch (const std::exception& error) {
        fprintf(stderr, "fboctl: %s\n", error.what());
        if (options.json) {
            Json::Value result;
            result["error"] = error.what();
            printJson(result);
        }
        return kNoAnswer;
    }
}

}  // namespace

}  // namespace fboctl

int main(int argc, char** argv) {
    using namespace fboctl;
    fillClosedStreams();
    return conclude(runProgram(argc, argv));
}
