#include "Options.h"

#include <getopt.h>

#include <charconv>
#include <cstring>

namespace fboctl {

const char kHelp[] = R"(fboctl - asks a phone's UFS storage service, and tries it without a phone

Usage: fboctl [OPTION…] COMMAND [ARGUMENT…]

Commands:
  support               Are defragmentation inside the flash (FBO) and erase requests (EUA)
                        supported, and if not, why? The exit status asks for both.
  defrag FILE|DIR…      Find where the files lie and defragment them.
  trigger RANGES        Defragment ranges: START,COUNT,START,COUNT,…  With "-" they are read from
                        standard input, where line ends and blanks do not count.
  stop                  Stop the run that is under way, from another terminal.
  continue              Take back a stop that has not been noticed yet.
  version-ctrl TEXT     Is FBO to be on under these rules, such as V:1.0,>0.9:ON?
  gc                    Ask the file system of the user data for urgent garbage collection.
  wear                  Show the program/erase cycles of the flash.
  eua support           Is EUA supported, and if not, why?
  eua size              Show the size that the device offers for EUA.
  eua erase LBAS        Send erase requests, with ":" between them; each takes 5 seconds.
  snapshot backup       Take a snapshot of the boot logical unit; takes up to 35 seconds.
  snapshot drop         Drop the snapshot; takes up to 30 seconds.
  snapshot status       Show the state of the snapshot.
  snapshot watch        With --sim: keep the service up until Ctrl-C and show each drop event that
                        comes, and what came of it.
  snapshot event [PID]  Have the kernel send the drop event: with --sim to a service of its own,
                        otherwise to that of the watch with this process id.
  doctor [FEATURE]      Check, step by step and without changing anything, that all is there
                        that the service needs; for fbo, eua or snapshot alone, or for all.

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
)";

namespace {

enum Option { kFirstBlock = 256, kRaw, kJson, kLog, kSim, kSimState, kTrace };

constexpr option kOptions[] = {
        {"first-block", required_argument, nullptr, kFirstBlock},
        {"raw", no_argument, nullptr, kRaw},
        {"json", no_argument, nullptr, kJson},
        {"log", no_argument, nullptr, kLog},
        {"sim", required_argument, nullptr, kSim},
        {"sim-state", required_argument, nullptr, kSimState},
        {"trace", no_argument, nullptr, kTrace},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0},
};

uint64_t parseBlock(const char* text) {
    uint64_t block = 0;
    const auto [end, error] = std::from_chars(text, text + strlen(text), block);
    if (error != std::errc() || *end != '\0') {
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
        case 'h':
            options.help = true;
            break;
        default:
            // getopt has said what is wrong.
            throw UsageError("");
    }
}

}  // namespace

Options parseOptions(int argc, char** argv) {
    Options options;
    int option;
    while ((option = getopt_long(argc, argv, "h", kOptions, nullptr)) != -1) {
        apply(option, options);
    }
    if (optind < argc) options.command = argv[optind++];
    // The commands of a feature are two words.
    if ((options.command == "eua" || options.command == "snapshot") && optind < argc) {
        options.command += std::string(" ") + argv[optind++];
    }
    options.arguments.assign(argv + optind, argv + argc);
    return options;
}

}  // namespace fboctl
