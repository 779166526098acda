/*
 * Holds the documents against what they describe: the nodes against the simulated device, the log
 * lines against the library's sources.
 */

#include <sys/stat.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "sim/Simulator.h"

namespace {

namespace fs = std::filesystem;

using Cells = std::vector<std::string>;

std::string readText(const fs::path& path) {
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

/** The rows of all tables of a document that have `count` cells, without the blanks around them. */
std::vector<Cells> readRows(const std::string& document, size_t count) {
    std::istringstream text(readText(fs::path(DOCS) / document));
    std::vector<Cells> rows;
    for (std::string line; std::getline(text, line);) {
        if (line.size() < 2 || line.front() != '|' || line.back() != '|') continue;
        Cells cells;
        for (size_t start = 1; start < line.size();) {
            const size_t end = line.find('|', start);
            const std::string cell = line.substr(start, end - start);
            const size_t first = cell.find_first_not_of(' ');
            cells.push_back(first == std::string::npos
                                    ? ""
                                    : cell.substr(first, cell.find_last_not_of(' ') - first + 1));
            start = end + 1;
        }
        if (cells.size() == count) rows.push_back(cells);
    }
    return rows;
}

/** What stands between backquotes in `cell`. */
Cells codesOf(const std::string& cell) {
    Cells codes;
    static const std::regex kCode("`([^`]+)`");
    for (std::sregex_iterator code(cell.begin(), cell.end(), kCode), end; code != end; ++code) {
        codes.push_back((*code)[1]);
    }
    return codes;
}

/** A node's path and mode; "link" and "directory" are modes too. */
using Nodes = std::map<std::string, std::string>;

/** The nodes that the document lists for devices of `generation`. */
Nodes documentedNodes(const std::string& generation) {
    Nodes nodes;
    for (const Cells& row : readRows("nodes.md", 4)) {
        static const std::regex kMode("0[0-7]{3}|link|directory");
        if (!std::regex_match(row[1], kMode)) continue;
        const Cells paths = codesOf(row[0]);
        EXPECT_EQ(paths.size(), 1u) << row[0];
        EXPECT_TRUE(row[2] == "both" || row[2] == "4.0" || row[2] == "3.1") << row[0];
        if (paths.size() != 1 || (row[2] != "both" && row[2] != generation)) continue;
        EXPECT_TRUE(nodes.emplace(paths[0], row[1]).second) << paths[0] << " is listed twice";
    }
    return nodes;
}

std::string modeOf(const fs::path& path) {
    struct stat attributes {};
    EXPECT_EQ(lstat(path.c_str(), &attributes), 0) << path;
    if (S_ISLNK(attributes.st_mode)) return "link";
    if (S_ISDIR(attributes.st_mode)) return "directory";
    char mode[8];
    snprintf(mode, sizeof(mode), "%04o", attributes.st_mode & 07777u);
    return mode;
}

/** Adds what is served below `directory`, called `name` in the document. Links are not followed. */
void walk(const fs::path& directory, const std::string& name, Nodes& nodes) {
    size_t entries = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(directory)) {
        ++entries;
        const std::string path = name + "/" + entry.path().filename().string();
        // The bus has the way to the controller, whose nodes are walked apart.
        if (path == "/.sim" || path == "/sys/bus" || path == "/sys/devices") continue;
        if (entry.is_directory() && !entry.is_symlink()) {
            walk(entry.path(), path, nodes);
        } else {
            nodes[path] = modeOf(entry.path());
        }
    }
    if (entries == 0) nodes[name] = modeOf(directory);
}

/** What the simulated phone serves, under the names of the document. */
Nodes servedNodes(const fs::path& controller) {
    Nodes walked;
    walk("/", "", walked);
    walk(controller, "CONTROLLER", walked);
    const std::string volume =
            "/" + fs::read_symlink("/dev/block/mapper/userdata").filename().string() + "/";
    Nodes nodes;
    for (const auto& [path, mode] : walked) {
        const size_t at = path.find(volume);
        nodes[at == std::string::npos
                      ? path
                      : path.substr(0, at) + "/DM/" + path.substr(at + volume.size())] = mode;
    }
    return nodes;
}

/** A phone, which is the process's: every row runs in a process of its own. */
struct Device {
    const char* name;
    const char* generation;
    const char* controller;
};

void PrintTo(const Device& device, std::ostream* out) {
    *out << device.name;
}

class NodeReference : public testing::TestWithParam<Device> {};

TEST_P(NodeReference, ListsWhatIsServed) {
    // Read first: a simulated device hides the files of the host.
    const Nodes documented = documentedNodes(GetParam().generation);
    const sim::Simulator phone(GetParam().name);
    const Nodes served = servedNodes(GetParam().controller);
    // As many at least as both generations share, so that no comparison of nothing passes.
    EXPECT_GT(served.size(), 25u);
    for (const auto& [path, mode] : served) {
        EXPECT_EQ(documented.count(path), 1u) << path << " is served and not documented";
    }
    for (const auto& [path, mode] : documented) {
        const auto node = served.find(path);
        EXPECT_EQ(node == served.end() ? "not served" : node->second, mode) << path;
    }
}

INSTANTIATE_TEST_SUITE_P(
        , NodeReference,
        testing::Values(Device{"ufs40:samsung", "4.0",
                               "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc"},
                        Device{"ufs31:samsung", "3.1",
                               "/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc"},
                        Device{"ufs40:micron,platform=mtk", "4.0",
                               "/sys/bus/platform/drivers/ufshcd-mtk/112b0000.ufshci"}));

/** A log line: its priority and format, and the function that it names. */
struct LogLine {
    std::string line;
    std::string function;

    bool operator<(const LogLine& other) const {
        return std::tie(line, function) < std::tie(other.line, other.function);
    }
};

/** The last `form` in `text`, its first group; empty if there is none. */
std::string lastOf(const std::string& text, const std::regex& form) {
    std::string last;
    for (std::sregex_iterator match(text.begin(), text.end(), form), end; match != end; ++match) {
        last = (*match)[1];
    }
    return last;
}

/**
 * The log lines of a source file. The function is the one around the call, or the constant or text
 * that the call names; empty if it is a variable.
 */
void addLogged(const std::string& source, std::set<LogLine>& logged) {
    static const std::regex kCall(
            "FBO_LOG(?:([DIE])\\(|\\(ANDROID_LOG_([DIE])[A-Z]+,\\s*(\\w+|\"\\w+\"),)\\s*"
            "((?:\"(?:[^\"\\\\]|\\\\.)*\"\\s*)+)");
    static const std::regex kPiece("\"((?:[^\"\\\\]|\\\\.)*)\"");
    static const std::regex kDefinition("\n[A-Za-z][^\n;={]*?(\\w+)\\([^\n]*");
    static const std::regex kNameConstant("kName\\[\\] = \"(\\w+)\"");
    size_t calls = 0;
    for (std::sregex_iterator call(source.begin(), source.end(), kCall), end; call != end; ++call) {
        ++calls;
        const std::smatch& match = *call;
        const std::string before = source.substr(0, match.position());
        std::string function = match[3];
        if (!match[3].matched) {
            function = lastOf(before, kDefinition);
        } else if (function == "kName") {
            function = lastOf(before, kNameConstant);
        } else if (function.front() == '"') {
            function = function.substr(1, function.size() - 2);
        } else {
            function.clear();
        }
        std::string format;
        const std::string pieces = match[4];
        for (std::sregex_iterator piece(pieces.begin(), pieces.end(), kPiece); piece != end;
             ++piece) {
            format += (*piece)[1];
        }
        const std::string priority = match[1].matched ? match[1] : match[2];
        logged.insert({priority + " " + format, function});
    }
    // No call is worded so that it goes unseen.
    static const std::regex kAnyCall("FBO_LOG[DIE]?\\(");
    const auto all = std::distance(std::sregex_iterator(source.begin(), source.end(), kAnyCall),
                                   std::sregex_iterator());
    EXPECT_EQ(calls, static_cast<size_t>(all));
}

std::set<LogLine> loggedLines() {
    std::set<LogLine> logged;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(SOURCES)) {
        const fs::path& path = entry.path();
        // Where the macros are defined nothing is logged.
        if (path.filename() == "Log.h") continue;
        if (path.extension() != ".cpp" && path.extension() != ".h") continue;
        SCOPED_TRACE(path);
        addLogged(readText(path), logged);
    }
    return logged;
}

std::set<LogLine> documentedLines() {
    std::set<LogLine> documented;
    for (const Cells& row : readRows("integration.md", 4)) {
        if (row[1] != "D" && row[1] != "I" && row[1] != "E") continue;
        const Cells formats = codesOf(row[2]);
        EXPECT_EQ(formats.size(), 1u) << row[2];
        EXPECT_FALSE(row[3].empty()) << row[2] << " has no meaning";
        if (formats.size() != 1) continue;
        for (const std::string& function : codesOf(row[0])) {
            EXPECT_TRUE(documented.insert({row[1] + " " + formats[0], function}).second)
                    << row[2] << " is listed twice";
        }
    }
    return documented;
}

TEST(IntegrationGuide, ListsWhatIsLogged) {
    const std::set<LogLine> documented = documentedLines();
    const std::set<LogLine> logged = loggedLines();
    EXPECT_GT(logged.size(), 100u);
    std::set<std::string> lines;
    for (const LogLine& line : documented) lines.insert(line.line);
    for (const LogLine& line : logged) {
        const bool listed =
                line.function.empty() ? lines.count(line.line) == 1 : documented.count(line) == 1;
        EXPECT_TRUE(listed) << "not documented: " << line.function << " " << line.line;
    }
    for (const LogLine& line : documented) {
        const bool said = logged.count(line) == 1 || logged.count({line.line, ""}) == 1;
        EXPECT_TRUE(said) << "documented, but not logged: " << line.function << " " << line.line;
    }
}

}  // namespace
