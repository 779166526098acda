#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include "Commands.h"
#include "Controller.h"
#include "Extents.h"
#include "Progress.h"
#include "Session.h"
#include "TriggerRun.h"

namespace fboctl {

namespace {

/** A character: its number, and how many bytes it takes in UTF-8. */
struct Character {
    char32_t number;
    size_t size;
};

/** The character that `text`, which is not empty, begins with; nothing if it is no UTF-8. */
std::optional<Character> firstCharacter(std::string_view text) {
    const auto first = static_cast<unsigned char>(text[0]);
    const size_t size = first < 0x80   ? 1
                        : first < 0xc0 ? 0
                        : first < 0xe0 ? 2
                        : first < 0xf0 ? 3
                        : first < 0xf8 ? 4
                                       : 0;
    if (size == 0 || size > text.size()) return {};
    char32_t number = size == 1 ? first : first & (0x7f >> size);
    for (const char c : text.substr(1, size - 1)) {
        if ((c & 0xc0) != 0x80) return {};
        number = number << 6 | (c & 0x3f);
    }
    // The least number that takes so many bytes.
    constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool is_surrogate = number >= 0xd800 && number <= 0xdfff;
    if (number < kLeast[size] || number > 0x10ffff || is_surrogate) return {};
    return Character{number, size};
}

/** Whether the name is one that JSON, or a terminal, can have. */
bool isUtf8(std::string_view name) {
    while (!name.empty()) {
        const auto character = firstCharacter(name);
        if (!character) return false;
        name.remove_prefix(character->size);
    }
    return true;
}

/** Whether a terminal obeys the character, or turns the direction of writing at it. */
bool isControl(char32_t number) {
    return number < 0x20 || (number >= 0x7f && number <= 0x9f) ||
           (number >= 0x202a && number <= 0x202e) || (number >= 0x2066 && number <= 0x2069);
}

/** A name without control characters and, if it is no UTF-8, without what is no ASCII. */
std::string shown(std::string_view name) {
    const bool is_text = isUtf8(name);
    std::string text;
    while (!name.empty()) {
        const auto byte = static_cast<unsigned char>(name[0]);
        const Character character = is_text ? *firstCharacter(name) : Character{byte, 1};
        const std::string_view bytes = name.substr(0, character.size);
        if (isControl(character.number) || (byte >= 0x80 && !is_text)) {
            for (const unsigned char c : bytes) {
                android::base::StringAppendF(&text, "\\x%02x", c);
            }
        } else {
            text += bytes;
        }
        name.remove_prefix(character.size);
    }
    return text;
}

void printTable(const std::vector<FileExtents>& files) {
    printf("%8s %10s %12s  %s\n", "extents", "blocks", "first block", "file");
    for (const FileExtents& file : files) {
        if (!file.error.empty()) {
            fprintf(stderr, "fboctl: %s: %s\n", shown(file.path.string()).c_str(),
                    file.error.c_str());
            continue;
        }
        uint64_t blocks = 0;
        for (const BlockRange& range : file.ranges) blocks += range.count;
        const std::string first =
                file.ranges.empty() ? "-" : std::to_string(file.ranges.front().start);
        printf("%8zu %10llu %12s  %s\n", file.ranges.size(),
               static_cast<unsigned long long>(blocks), first.c_str(),
               shown(file.path.string()).c_str());
    }
    fflush(stdout);
}

Json::Value describe(const std::vector<FileExtents>& files) {
    Json::Value list(Json::arrayValue);
    for (const FileExtents& file : files) {
        Json::Value entry;
        const std::string name = file.path.string();
        entry["path"] = isUtf8(name) ? name : shown(name);
        if (!isUtf8(name)) {
            std::string bytes;
            for (const unsigned char c : name) android::base::StringAppendF(&bytes, "%02x", c);
            entry["path_bytes"] = bytes;
        }
        if (!file.error.empty()) {
            entry["error"] = file.error;
        } else {
            entry["ranges"] = Json::Value(Json::arrayValue);
            for (const BlockRange& range : file.ranges) {
                Json::Value pair(Json::arrayValue);
                pair.append(static_cast<Json::UInt64>(range.start));
                pair.append(static_cast<Json::UInt64>(range.count));
                entry["ranges"].append(pair);
            }
        }
        list.append(entry);
    }
    return list;
}

std::string counted(size_t count, const char* unit) {
    return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
}

/** Blocks SIGINT in all threads that are started from now on; one of them waits for it. */
void blockInterrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void print(const char* what, int64_t before, int64_t after) {
    printf("%s before: %lld, after: %lld\n", what, static_cast<long long>(before),
           static_cast<long long>(after));
}

void show(const RunResult& run) {
    if (run.refused) printf("The service did not take the request.\n");
    if (run.stopped)
        printf("Stopped after %s; the figures are partial.\n", counted(run.zones, "zone").c_str());
    if (run.unseen) printf("The log shows no zone, so whether one failed is not known.\n");
    if (run.failed_zones > 0) printf("%zu of %zu zones failed.\n", run.failed_zones, run.zones);
    if (run.unmeasured_zones > 0) {
        printf("%zu of %zu zones not measured: for them, 0 is counted after.\n",
               run.unmeasured_zones, run.zones);
    }
    if (run.mapping_failed) printf("The linear mapping failed.\n");
    print("Fragmentation", run.before, run.after);
    const size_t unmeasured = run.failed_zones + run.unmeasured_zones;
    if (unmeasured == 0 || unmeasured == run.zones) return;
    if (run.measured) {
        print("Of the zones that were measured,", run.measured->before, run.measured->after);
    } else {
        printf("What the measured zones count for is not known.\n");
    }
}

void showJson(const RunResult& run, Json::Value result) {
    const auto zones = [&](size_t count) {
        return run.unseen ? Json::Value::null : Json::Value(Json::UInt64{count});
    };
    result["before"] = Json::Int64{run.before};
    result["after"] = Json::Int64{run.after};
    result["zones"] = zones(run.zones);
    result["failed_zones"] = zones(run.failed_zones);
    result["unmeasured_zones"] = zones(run.unmeasured_zones);
    result["measured"] = Json::Value::null;
    if (run.measured && run.zones > run.failed_zones + run.unmeasured_zones) {
        result["measured"]["before"] = Json::Int64{run.measured->before};
        result["measured"]["after"] = Json::Int64{run.measured->after};
    }
    result["stopped"] = run.stopped;
    result["refused"] = run.refused;
    result["mapping_failed"] = run.mapping_failed;
    printJson(result);
}

/** Runs a request in `session` and shows its result; JSON is added to `result`. */
ExitStatus runAndShow(const Options& options, const Session& session, Progress& progress,
                      const std::string& request, Json::Value result) {
    const RunResult run = runTrigger(session, request, progress);
    if (options.json) {
        showJson(run, std::move(result));
    } else {
        show(run);
    }
    return run.ok() ? kDone : kNo;
}

/** The ranges that the user gave, as the service wants them. */
std::string readRequest(const Options& options) {
    std::string request = options.arguments[0];
    if (request == "-" && !android::base::ReadFdToString(STDIN_FILENO, &request)) {
        throw UsageError(std::string("standard input: ") + strerror(errno));
    }
    if (options.raw) return request;
    request.erase(std::remove_if(request.begin(), request.end(),
                                 [](unsigned char c) { return isspace(c); }),
                  request.end());
    if (!request.empty() && request.back() != ',') request += ',';
    const bool is_of_numbers = request.find_first_not_of("0123456789,") == request.npos &&
                               request.find(",,") == request.npos && request[0] != ',';
    if (!is_of_numbers || std::count(request.begin(), request.end(), ',') % 2 != 0) {
        throw UsageError("ranges are START,COUNT,START,COUNT,… (--raw sends any text)");
    }
    return request;
}

/** Leaves out what the user does not want; `counts` holds of a file. */
template <typename Counts>
void keep(std::vector<FileExtents>& files, Counts counts) {
    files.erase(std::remove_if(files.begin(), files.end(),
                               [&](const FileExtents& file) {
                                   return file.error.empty() && !counts(file);
                               }),
                files.end());
}

/** Leaves out all but the most fragmented files, whose ranges are `most` at the most. */
void keepMostFragmented(std::vector<FileExtents>& files, size_t most) {
    std::vector<size_t> sizes;
    for (const FileExtents& file : files) sizes.push_back(file.ranges.size());
    std::sort(sizes.begin(), sizes.end(), std::greater<>());
    // From the largest number on, each one that still fits.
    std::map<size_t, size_t> taken;
    for (const size_t size : sizes) {
        if (size > most) continue;
        most -= size;
        ++taken[size];
    }
    keep(files, [&](const FileExtents& file) {
        size_t& left = taken[file.ranges.size()];
        return left > 0 && left-- > 0;
    });
}

/** How many ranges the service puts into a zone of this device. */
class ZoneLimit {
  public:
    explicit ZoneLimit(std::optional<size_t> limit)
        : is_known_(limit.has_value()), limit_(limit.value_or(0)) {}

    bool isKnown() const { return is_known_; }
    /** How many zones so many ranges make. */
    size_t zonesOf(size_t ranges) const { return limit_ == 0 ? 1 : (ranges + limit_ - 1) / limit_; }
    /** How many ranges fit into so many zones. */
    size_t rangesIn(size_t zones) const {
        if (!is_known_) throw UsageError("--limit: how much a zone holds cannot be read here");
        return limit_ == 0 ? SIZE_MAX : zones * limit_;
    }

  private:
    const bool is_known_;
    /** 0: any number. */
    const size_t limit_;
};

}  // namespace

ExitStatus defrag(const Options& options) {
    // Before the session: a simulated device hides the files of the host.
    std::vector<FileExtents> files =
            collectExtents({options.arguments.begin(), options.arguments.end()}, options);
    keep(files, [&](const FileExtents& file) {
        return file.ranges.size() >= options.min_extents && file.size >= options.min_size;
    });
    blockInterrupts();
    Progress progress(!options.json);
    std::unique_ptr<Session> session;
    std::unique_ptr<Platform> platform;
    if (options.dry_run) {
        platform = startPlatform(options.sim, {});
    } else {
        session = std::make_unique<Session>(
                options, [&](char, const std::string& text) { progress.take(text); });
    }
    const bool sees_nodes =
            (options.dry_run ? *platform : session->platform()).whyNoNodes() == nullptr;
    const ZoneLimit zone(sees_nodes ? readZoneLimit() : std::nullopt);
    if (options.limit) keepMostFragmented(files, zone.rangesIn(*options.limit));

    const std::vector<BlockRange> ranges = joinRanges(files);
    std::string request;
    appendRanges(request, ranges);
    const size_t unread = std::count_if(files.begin(), files.end(), [](const FileExtents& file) {
        return !file.error.empty();
    });
    Json::Value result;
    if (options.json) {
        result["files"] = describe(files);
        result["ranges"] = Json::UInt64{ranges.size()};
        result["expected_zones"] =
                zone.isKnown() ? Json::UInt64{zone.zonesOf(ranges.size())} : Json::Value::null;
    } else {
        printTable(files);
        printf("%s, %s in %s%s\n", counted(files.size() - unread, "file").c_str(),
               counted(ranges.size(), "range").c_str(),
               zone.isKnown() ? counted(zone.zonesOf(ranges.size()), "zone").c_str()
                              : "a number of zones that is not known",
               unread == 0 ? "" : ("; " + std::to_string(unread) + " not read").c_str());
        fflush(stdout);
    }
    if (request.empty() || options.dry_run) {
        if (options.json) printJson(result);
        if (request.empty()) fprintf(stderr, "fboctl: none of this lies in blocks of the unit\n");
        return request.empty() || unread > 0 ? kNo : kDone;
    }
    const ExitStatus status = runAndShow(options, *session, progress, request, std::move(result));
    return unread > 0 ? kNo : status;
}

ExitStatus trigger(const Options& options) {
    const std::string request = readRequest(options);
    blockInterrupts();
    Progress progress(!options.json);
    const Session session(options, [&](char, const std::string& text) { progress.take(text); });
    return runAndShow(options, session, progress, request, Json::Value());
}

}  // namespace fboctl
