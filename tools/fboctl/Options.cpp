#include "Options.h"

#include <getopt.h>

#include <algorithm>
#include <string>
#include <vector>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "Commands.h"

namespace fboctl {

namespace {

constexpr char kIntroduction[] =
        R"(fboctl - asks a phone's UFS storage service, and tries it without a phone

Usage: fboctl [OPTION…] COMMAND [ARGUMENT…]

Commands:
)";

constexpr char kRest[] = R"(
Options:
  --first-block N       defrag: the block of the unit, in 4 KiB, at which the file system begins
  --raw                 trigger: send the text as it stands; otherwise the comma that the service
                        wants after the last number is added where it is missing
  --json                Print the result as JSON
  --log                 Show the service's log on standard error
  --sim DEVICE          On a host: run the service on a simulated device, such as ufs40:samsung
                        or ufs31:kioxia,analysis=stuck. "--sim list" shows devices and settings
  --sim-state FILE      Keep in FILE what the simulated flash has optimised
  --trace               Show the simulated device's node traffic on standard error
  --restart             run, serve: start the service again when it has died
  --help                Show this

Ctrl-C asks a run to stop; it ends as soon as the device is idle and its figures are shown all
the same. If the service cannot be told, that is said, and the run goes on. A second Ctrl-C ends
fboctl.

Exit status: 0 done; 1 the answer is no, or it failed or was stopped; 2 wrong usage; 3 no service,
or an error escaped the call.

Examples:
  fboctl support                                    on a phone, as root
  fboctl defrag --first-block 262144 /data/app
  fboctl --sim ufs40:samsung defrag ~/Pictures
  fboctl --sim ufs40:kioxia --trace eua erase 100,8:200,16
  fboctl --sim ufs31:kioxia --log --trace trigger 81920,64,204800,128
  fboctl --sim ufs40:micron,snapshot=2 snapshot event
  fboctl --sim ufs40:micron,analysis_end=9 --json trigger - < ranges.txt
  fboctl --sim ufs40:samsung,pace=20 run sh -c 'fboctl trigger 8,8 & sleep 1; fboctl stop; wait'
)";

enum Option { kFirstBlock = 256, kRaw, kJson, kLog, kSim, kSimState, kTrace, kRestart };

constexpr option kOptions[] = {
        {"first-block", required_argument, nullptr, kFirstBlock},
        {"raw", no_argument, nullptr, kRaw},
        {"json", no_argument, nullptr, kJson},
        {"log", no_argument, nullptr, kLog},
        {"sim", required_argument, nullptr, kSim},
        {"sim-state", required_argument, nullptr, kSimState},
        {"trace", no_argument, nullptr, kTrace},
        {"restart", no_argument, nullptr, kRestart},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
};

uint64_t parseBlock(const char* text) {
    uint64_t block = 0;
    if (!android::base::ParseUint(text, &block)) {
        throw UsageError("--first-block takes a number, not \"" + std::string(text) + "\"");
    }
    return block;
}

void apply(int option, Options& options) {
    switch (option) {
        case kFirstBlock:
            options.first_block = parseBlock(optarg);
            break;
        case kRaw:
            options.raw = true;
            break;
        case kJson:
            options.json = true;
            break;
        case kLog:
            options.log = true;
            break;
        case kSim:
            options.sim.device = optarg;
            break;
        case kSimState:
            options.sim.state_file = optarg;
            break;
        case kTrace:
            options.sim.trace = true;
            break;
        case kRestart:
            options.restart = true;
            break;
        case 'h':
            options.help = true;
            break;
        default:
            // getopt_long() has printed what is wrong.
            throw UsageError("");
    }
}

/** The command as the help shows it. */
std::string describe(const Command& command) {
    constexpr size_t kIndent = 24;
    std::string text = std::string("  ") + command.name + " " + command.arguments;
    // In UTF-8 only the first byte of a character takes a column.
    const size_t columns = std::count_if(text.begin(), text.end(),
                                         [](unsigned char c) { return (c & 0xc0) != 0x80; });
    if (columns < kIndent) text.append(kIndent - columns, ' ');
    const std::string margin = "\n" + std::string(kIndent, ' ');
    return text + android::base::StringReplace(command.help, "\n", margin, true) + "\n";
}

}  // namespace

std::string describeUsage() {
    std::string text = kIntroduction;
    for (const Command& command : kCommands) text += describe(command);
    return text + kRest;
}

Options parseOptions(int argc, char** argv) {
    Options options;
    std::vector<std::string> words;
    int option;
    // Words come in their place among the options; what follows "run" has options of its own.
    while ((words.empty() || words[0] != "run") &&
           (option = getopt_long(argc, argv, "-h", kOptions, nullptr)) != -1) {
        option == 1 ? words.push_back(optarg) : apply(option, options);
    }
    words.insert(words.end(), argv + optind, argv + argc);
    if (words.empty()) return options;
    // The commands of a feature are two words.
    const bool is_pair = words.size() > 1 && (words[0] == "eua" || words[0] == "snapshot");
    options.command = is_pair ? words[0] + " " + words[1] : words[0];
    options.arguments.assign(words.begin() + (is_pair ? 2 : 1), words.end());
    return options;
}

}  // namespace fboctl
