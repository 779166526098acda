#include "Options.h"

#include <getopt.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
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
)";

constexpr char kRest[] = R"(
Ctrl-C asks a run to stop; it ends as soon as the device is idle and its figures are shown all
the same. If the service cannot be told, that is said, and the run goes on. A second Ctrl-C ends
fboctl.

Exit status: 0 done; 1 the answer is no, or it failed, was stopped or not measured, or a file could
not be read; 2 wrong usage; 3 no service, or an error escaped the call.

Examples:
  fboctl support                                    on a phone, as root
  fboctl defrag --min-extents 8 --limit 20 /data/app
  fboctl --sim ufs40:samsung defrag ~/Pictures
  fboctl --sim ufs40:kioxia --trace eua erase 100,8:200,16
  fboctl --sim ufs31:kioxia --log --trace trigger 81920,64,204800,128
  fboctl --sim ufs40:micron,snapshot=2 snapshot event
  adb logcat -d | fboctl explain --html runs.html
  fboctl --sim ufs40:micron,analysis_end=9 --json trigger - < ranges.txt
  fboctl --sim ufs40:samsung,pace=20 run sh -c 'fboctl trigger 8,8 & sleep 1; fboctl stop; wait'
)";

/** Something that a user can add to a command. */
struct OptionRow {
    const char* name;
    /** What the value is; null if the option takes none. */
    const char* value;
    /** The commands that take it, with blanks between; behind "!": all but these; empty: all. */
    const char* commands;
    /** What it does, as the help says it. */
    const char* help;
    void (*apply)(Options& options, const std::string& value);
};

template <typename Number>
Number parseNumber(const char* option, const std::string& text) {
    Number number = 0;
    if (!android::base::ParseUint(text, &number)) {
        throw UsageError(std::string("--") + option + " takes a number, not \"" + text + "\"");
    }
    return number;
}

/** A number of bytes, which may end in K, M or G. */
uint64_t parseSize(const char* option, const std::string& text) {
    constexpr char kUnits[] = "KMG";
    const size_t unit = text.empty() ? std::string::npos : std::string(kUnits).find(text.back());
    if (unit == std::string::npos) return parseNumber<uint64_t>(option, text);
    const auto number = parseNumber<uint32_t>(option, text.substr(0, text.size() - 1));
    return uint64_t{number} << (10 * (unit + 1));
}

/** All options, in the order of the help. Add a row; nothing else names them. */
constexpr OptionRow kOptions[] = {
        {"first-block", "N", "defrag exercise",
         "The block of the unit, in 4 KiB, at which the file system begins; without it, it\n"
         "is found out through device-mapper and partitions",
         [](Options& options, const std::string& value) {
             options.first_block = parseNumber<uint64_t>("first-block", value);
         }},
        {"min-extents", "N", "defrag", "Leave files of fewer extents alone",
         [](Options& options, const std::string& value) {
             options.min_extents = parseNumber<uint32_t>("min-extents", value);
         }},
        {"min-size", "BYTES", "defrag", "Leave smaller files alone; BYTES may end in K, M or G",
         [](Options& options, const std::string& value) {
             options.min_size = parseSize("min-size", value);
         }},
        {"limit", "ZONES", "defrag", "Take the most fragmented files that fit into so many zones",
         [](Options& options, const std::string& value) {
             options.limit = parseNumber<uint32_t>("limit", value);
             if (options.limit == 0) throw UsageError("--limit takes 1 or more");
         }},
        {"dry-run", nullptr, "defrag", "Show files, ranges and zones, and leave it at that",
         [](Options& options, const std::string&) { options.dry_run = true; }},
        {"yes", nullptr, "exercise",
         "Do what cannot be taken back: erase, take and drop a snapshot",
         [](Options& options, const std::string&) { options.yes = true; }},
        {"drop-event", "SECONDS", "exercise",
         "Wait so long after the backup for the driver's drop event, which a simulated\n"
         "device sends at once",
         [](Options& options, const std::string& value) {
             options.drop_event = parseNumber<uint32_t>("drop-event", value);
         }},
        {"raw", nullptr, "trigger",
         "Send the text as it stands; otherwise it is checked, and the comma that the\n"
         "service wants after the last number is added where it is missing",
         [](Options& options, const std::string&) { options.raw = true; }},
        {"restart", nullptr, "run serve", "Start the service again when it has died",
         [](Options& options, const std::string&) { options.restart = true; }},
        {"html", "FILE", "explain", "Write a page with plots, too",
         [](Options& options, const std::string& value) { options.html = value; }},
        {"table", nullptr, "explain", "Print what each line of the log means, as the guide has it",
         [](Options& options, const std::string&) { options.table = true; }},
        {"json", nullptr, "!completion manual run serve", "Print the result as JSON",
         [](Options& options, const std::string&) { options.json = true; }},
        {"log", nullptr, "!completion manual explain exercise",
         "Show the service's log on standard error",
         [](Options& options, const std::string&) { options.log = true; }},
        {"sim", "DEVICE", "!completion manual explain",
         "On a host: run the service on a simulated device, such as ufs40:samsung or\n"
         "ufs31:kioxia,analysis=stuck. \"--sim list\" shows devices and settings",
         [](Options& options, const std::string& value) { options.sim.device = value; }},
        {"sim-state", "FILE", "!completion manual explain",
         "Keep in FILE what the simulated flash has optimised, for the next time",
         [](Options& options, const std::string& value) { options.sim.state_file = value; }},
        {"trace", nullptr, "!completion manual explain",
         "Show the simulated device's node traffic on standard error",
         [](Options& options, const std::string&) { options.sim.trace = true; }},
        {"help", nullptr, "", "Show this; after a command, the help for that command",
         [](Options& options, const std::string&) { options.help = true; }},
        {"version", nullptr, "", "Show the version of the interface",
         [](Options& options, const std::string&) { options.version = true; }},
};

bool takes(const std::string& command, const OptionRow& option) {
    std::string_view names = option.commands;
    if (names.empty()) return true;
    const bool all_but = android::base::ConsumePrefix(&names, "!");
    const std::vector<std::string> commands = android::base::Split(std::string(names), " ");
    return (std::find(commands.begin(), commands.end(), command) != commands.end()) != all_but;
}

/** A row of the help: what stands on the left, then the text, in a column of its own. */
std::string describe(std::string left, const std::string& text) {
    constexpr size_t kIndent = 24;
    left = "  " + left;
    // The bytes that continue a character take no column.
    const size_t columns = std::count_if(left.begin(), left.end(),
                                         [](unsigned char c) { return (c & 0xc0) != 0x80; });
    left.append(columns + 2 <= kIndent ? kIndent - columns : 2, ' ');
    const std::string margin = "\n" + std::string(kIndent, ' ');
    return left + android::base::StringReplace(text, "\n", margin, true) + "\n";
}

std::string describe(const Command& command) {
    return describe(std::string(command.name) + " " + command.arguments, command.help);
}

/** @param names_commands whether to say which commands take the option, if only some do. */
std::string describe(const OptionRow& option, bool names_commands) {
    const std::string left =
            std::string("--") + option.name + " " + (option.value == nullptr ? "" : option.value);
    const std::string commands =
            android::base::StringReplace(option.commands, " ", ", ", true) + ": ";
    const bool only_some = *option.commands != '\0' && *option.commands != '!';
    return describe(left, (names_commands && only_some ? commands : "") + option.help);
}

/** The options as getopt_long() takes them: each returns its place in the table, from 256 on. */
std::vector<option> getoptTable() {
    std::vector<option> table;
    for (const OptionRow& row : kOptions) {
        table.push_back({row.name, row.value == nullptr ? no_argument : required_argument, nullptr,
                         256 + static_cast<int>(table.size())});
    }
    table.push_back({});
    return table;
}

/** The words among the arguments; options are applied to `options`, and their rows kept. */
std::vector<std::string> parseWords(int argc, char** argv, Options& options,
                                    std::vector<const OptionRow*>& given) {
    // A word such as -1,8 is no option. The blank that says so to getopt is dropped again.
    std::vector<std::string> texts(argv, argv + argc);
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        if (text.size() > 1 && text[0] == '-' && isdigit(static_cast<unsigned char>(text[1]))) {
            text.insert(0, " ");
        }
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    const std::vector<option> table = getoptTable();
    std::vector<std::string> words;
    int found;
    // Words come in their place among the options; the command behind "run" has options of its own.
    while ((words.size() < 2 || words[0] != "run") &&
           (found = getopt_long(argc, pointers.data(), "-h", table.data(), nullptr)) != -1) {
        if (found == 1) {
            words.push_back(optarg);
        } else if (found == 'h') {
            options.help = true;
        } else if (found < 256) {
            // getopt has said what is wrong.
            throw UsageError("");
        } else {
            given.push_back(&kOptions[found - 256]);
            given.back()->apply(options, optarg == nullptr ? "" : optarg);
        }
    }
    words.insert(words.end(), pointers.begin() + optind, pointers.begin() + argc);
    for (std::string& word : words) {
        if (android::base::StartsWith(word, " -")) word.erase(0, 1);
    }
    return words;
}

}  // namespace

std::string describeUsage(const Options& options) {
    std::string text = kIntroduction;
    std::string rows;
    const Command* only = nullptr;
    for (const Command& command : kCommands) {
        if (options.command == command.name) only = &command;
        rows += describe(command);
    }
    if (only == nullptr) {
        text += "\nCommands:\n" + rows;
    } else {
        text = std::string("Usage: fboctl [OPTION…] ") + only->name + " " + only->arguments +
               "\n\n" + only->help + "\n";
    }
    text += "\nOptions:\n";
    for (const OptionRow& option : kOptions) {
        if (only == nullptr || takes(only->name, option)) text += describe(option, only == nullptr);
    }
    return only == nullptr ? text + kRest : text;
}

ExitStatus completion(const Options&) {
    std::string words;
    for (const Command& command : kCommands) words += std::string(command.name) + " ";
    for (const OptionRow& option : kOptions) words += std::string("--") + option.name + " ";
    printf("complete -o default -W \"%s\" fboctl\n", words.c_str());
    return kDone;
}

ExitStatus manual(const Options&) {
    // As it stands: the help is laid out already.
    const std::string help = android::base::StringReplace(describeUsage({}), "\\", "\\e", true);
    printf(".TH FBOCTL 1\n.SH NAME\nfboctl \\- asks a phone's UFS storage service\n"
           ".SH SYNOPSIS\n.B fboctl\n[OPTION...] COMMAND [ARGUMENT...]\n.SH DESCRIPTION\n.nf\n%s",
           android::base::StringReplace(help, "\n.", "\n\\&.", true).c_str());
    return kDone;
}

Options parseOptions(int argc, char** argv) {
    Options options;
    std::vector<const OptionRow*> given;
    const std::vector<std::string> words = parseWords(argc, argv, options, given);
    if (words.empty()) return options;
    // The commands of a feature are two words.
    const bool is_pair = words.size() > 1 && (words[0] == "eua" || words[0] == "snapshot");
    options.command = is_pair ? words[0] + " " + words[1] : words[0];
    options.arguments.assign(words.begin() + (is_pair ? 2 : 1), words.end());
    for (const OptionRow* option : given) {
        if (!takes(options.command, *option)) {
            throw UsageError(options.command + " takes no --" + option->name);
        }
    }
    return options;
}

}  // namespace fboctl
