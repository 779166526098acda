#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <android-base/strings.h>
#include <json/json.h>

#include "Commands.h"
#include "ExplainReport.h"
#include "LogForms.h"
#include "LogMeanings.h"
#include "RunLog.h"
#include "Session.h"

namespace fboctl {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

// However long the input is, and whatever it is, no more than this is kept of it.
constexpr size_t kLongestLine = 4096;
constexpr size_t kMostZones = 65536;
constexpr size_t kMostOpen = 64;
constexpr size_t kMostErrors = 4;
constexpr size_t kLongestQuote = 160;

constexpr char kNoLines[] = "lines are missing";
constexpr char kCutShort[] = "the service died in it";

/** Which call a function speaks in. Others are called by several, or tell nothing of them. */
constexpr struct {
    std::string_view function;
    std::string_view kind;
} kKinds[] = {
        {"FBO_trigger", "run"},
        {"UFS40_FBO_Imp", "run"},
        {"UFS31_FBO_Imp", "run"},
        {"FBO_Clear", "run"},
        {"record_cmd_fail", "run"},
        {"readFileToString", "run"},
        {"FBO2_Support_Linear_Mapping", "run"},
        {"FBO2_Linear_Mapping", "run"},
        {"EUA_SendEraseCmd", "erase"},
        {"updateSnapshotCloudCtrlPolicy", "backup"},
        {"SnapShot_startBackup", "backup"},
        {"SnapShot_startDrop", "drop"},
        {"UEventEvent", "drop event"},
        {"UEventWorker", "drop events"},
};

/** What tells, outside the service's own log, that it has died, and why. */
constexpr struct {
    const char* text;
    /** It names the service. */
    bool is_own;
    /** The process that has died is named in a line before it. */
    bool is_tombstone;
} kDeaths[] = {
        {"Abort message: '", false, true},
        {"terminating with uncaught exception", false, false},
        {"terminating due to uncaught exception", false, false},
        {"terminate called ", false, false},
        {"Service 'vendor.nivora.fbo-1-0' (pid ", true, false},
        {"fboctl: the service has died", true, false},
        {"fboctl: an error escaped the call", true, false},
};

/** What may be shown of a text of the log: printable, and not too long. */
std::string quote(std::string_view text) {
    std::string shown(text.substr(0, kLongestQuote));
    for (char& c : shown) {
        if (c < ' ' || c > '~') c = '?';
    }
    return text.size() > kLongestQuote ? shown + "..." : shown;
}

/** A call of the service, as far as the log has told of it. */
struct Call {
    std::string_view kind;
    Json::Value event;
    std::optional<double> begin;
    std::optional<double> last;
    RunLog run;
    /** The last line, if the call tells its end. */
    const LogMeaning* end = nullptr;
    /** The last error line before. */
    const LogMeaning* error = nullptr;
    /** The items of an erase, and those that have been sent. */
    size_t items = 0;
    size_t sent = 0;
    /** Further lines have come than those that it begins with. */
    bool is_further = false;
};

/** Finds the calls in a log, and the deaths of the service, and tells of each when it is over. */
class Explainer {
  public:
    explicit Explainer(std::function<void(const Json::Value&)> tell) : tell_(std::move(tell)) {}

    void take(const LogEntry& entry) {
        if (entry.priority != '\0' || findMeaning(entry.text) || isReport(entry)) {
            takeLine(entry);
        } else {
            takeOther(entry);
        }
    }

    /** The log is over. */
    void end() {
        has_died_ ? cutShort() : closeAll();
        if (!errors_.empty()) tellService(has_died_ ? "service died" : "fault of the service", {});
    }

  private:
    using Key = std::pair<int, int>;

    /** Whether a line without a form is the second one of a report. */
    bool isReport(const LogEntry& entry) const {
        const auto call = calls_.find({});
        return call != calls_.end() && call->second.run.expectsReport() &&
               android::base::StartsWith(entry.text, ": ");
    }

    void takeLine(const LogEntry& entry) {
        const auto line = findMeaning(entry.text, entry.priority);
        const Role role = line ? line->meaning->role : Role::kDetail;
        // The worker that tells of the start may be late: what tells it for sure is the process.
        const bool is_new = entry.process == 0 || entry.process != process_;
        const bool is_start = role == Role::kStart || (entry.process != 0 && process_ != 0);
        if (entry.process != 0) process_ = entry.process;
        if (is_new && is_start) {
            cutShort();
            tellService(started_ ? "service started again" : "service started", entry);
        } else if (role == Role::kFatal) {
            addError(entry);
        } else if (role == Role::kVendor) {
            maker_ = findMaker(std::string(line->value));
        }
        started_ = true;
        Call* const call = callOf(entry, line);
        if (call == nullptr) return;
        call->last = entry.time;
        call->run.take(entry.text, line, entry.time);
        if (line) takeOfCall(*call, *line, entry);
    }

    /** The call that a line belongs to; begins it where it has to, and ends the one before it. */
    Call* callOf(const LogEntry& entry, const std::optional<KnownLine>& line) {
        const Key key(entry.process, entry.thread);
        const auto open = calls_.find(key);
        Call* const current = open == calls_.end() ? nullptr : &open->second;
        std::string_view kind;
        for (const auto& row : kKinds) {
            if (line && line->function == row.function) kind = row.kind;
        }
        const Role role = line ? line->meaning->role : Role::kDetail;
        if (kind.empty() || role == Role::kStart) return current;
        const bool is_first = role == Role::kBegin || role == Role::kLimit ||
                              role == Role::kRefused || role == Role::kWhole;
        const bool is_begin = role == Role::kBegin || role == Role::kLimit;
        if (current != nullptr && !(is_first && current->is_further) &&
            // A drop may be part of what is done at an event.
            (current->kind == kind || (current->kind == "drop event" && kind == "drop"))) {
            current->is_further = !is_begin;
            return current;
        }
        if (current != nullptr) close(open);
        if (calls_.size() >= kMostOpen) close(calls_.begin());
        Call& call = calls_[key];
        call.kind = kind;
        call.event = about(kind, entry);
        call.begin = entry.time;
        call.is_further = !is_begin || kind == "erase" || kind == "drop event";
        // The run, and a zone of it, have begun in what is not there.
        if (android::base::EndsWith(line->function, "_FBO_Imp")) call.run.zones.emplace_back();
        return &call;
    }

    void takeOfCall(Call& call, const KnownLine& line, const LogEntry& entry) {
        const Role role = line.meaning->role;
        if (role == Role::kBegin && call.kind == "erase") {
            call.items = android::base::Split(std::string(line.value), ":").size();
        }
        if (role == Role::kItem) ++call.sent;
        const bool is_event = call.kind == "drop event";
        if (role == Role::kWhole ||
            (role == Role::kEnd && (!is_event || line.function == "UEventEvent"))) {
            call.end = line.meaning;
        } else if (line.meaning->priority == 'E') {
            call.error = line.meaning;
        }
        if (call.end != nullptr || call.run.over || call.run.zones.size() >= kMostZones) {
            close(calls_.find({entry.process, entry.thread}));
        }
    }

    /** A line that is not the service's: it may tell of its death. */
    void takeOther(const LogEntry& entry) {
        const size_t program = entry.text.find(">>> ");
        if (program != std::string::npos) {
            is_own_crash_ = entry.text.find("nivora.hardware.fbo", program) != std::string::npos;
        }
        for (const auto& death : kDeaths) {
            const size_t at = entry.text.find(death.text);
            if (at == std::string::npos) continue;
            if (death.is_own ||
                (death.is_tombstone ? is_own_crash_ : isOwnHeader(entry.text.substr(0, at)))) {
                LogEntry told;
                std::string_view rest = entry.text;
                LogForms::takeTime(rest, told);
                told.text = entry.text.substr(at);
                addError(told);
                has_died_ = true;
            }
            return;
        }
    }

    /** Whether the service's process is named, or none at all, as where there is no other. */
    bool isOwnHeader(const std::string& header) const {
        const auto words = android::base::Split(header, " ():/");
        return std::find(words.begin(), words.end(), std::to_string(process_)) != words.end() ||
               header.find_first_of("0123456789") == std::string::npos;
    }

    void addError(const LogEntry& entry) {
        if (errors_.empty()) death_ = about("death", entry);
        if (errors_.size() < kMostErrors) errors_.push_back(quote(entry.text));
    }

    static Json::Value about(std::string_view kind, const LogEntry& entry) {
        Json::Value event;
        event["kind"] = std::string(kind);
        if (entry.time) {
            event["time"] = quote(entry.stamp);
            event["seconds_since"] = *entry.time;
        }
        if (entry.process != 0) event["process"] = entry.process;
        if (entry.thread != 0) event["thread"] = entry.thread;
        return event;
    }

    void tellService(const char* kind, const LogEntry& entry) {
        Json::Value event = errors_.empty() || entry.time ? about(kind, entry) : death_;
        event["kind"] = kind;
        if (!errors_.empty()) {
            for (const std::string& error : errors_) event["errors"].append(error);
            const bool is_fault = std::strcmp(kind, "fault of the service") == 0;
            addProblem(event, is_fault ? "no controller is found" : "the service died", nullptr);
        }
        errors_.clear();
        has_died_ = false;
        finish(event);
    }

    /** The service has died in the calls that have not ended. */
    void cutShort() {
        unended_ = kCutShort;
        closeAll();
        unended_ = kNoLines;
    }

    void closeAll() {
        while (!calls_.empty()) close(calls_.begin());
    }

    void close(std::map<Key, Call>::iterator open) {
        Call& call = open->second;
        Json::Value& event = call.event;
        addSeconds(call.begin, call.last, event);
        if (call.kind == "run") {
            describeRun(call.run, event);
        } else if (call.end != nullptr) {
            const bool is_done = android::base::StartsWith(call.end->meaning, "Answer: true.");
            event["result"] = is_done ? "done" : call.end->meaning;
            if (call.end->cause != nullptr) addProblem(event, call.end->cause, call.error);
        } else if (call.kind == "erase") {
            event["items"] = Json::UInt64(call.items);
            event["sent"] = Json::UInt64(call.sent);
            if (call.sent < call.items || call.items == 0) addProblem(event, unended_, nullptr);
        } else {
            addProblem(event, unended_ == kCutShort ? kCutShort : "it did not end well",
                       call.error);
        }
        finish(event);
        calls_.erase(open);
    }

    /** Without a year, what lasts over its end has no length. */
    static void addSeconds(std::optional<double> begin, std::optional<double> end,
                           Json::Value& shown) {
        if (begin && end && *begin <= *end) shown["seconds"] = *end - *begin;
    }

    void finish(Json::Value& event) {
        event["ok"] = !event.isMember("problems");
        tell_(event);
    }

    static void addProblem(Json::Value& event, const char* cause, const LogMeaning* look) {
        for (Json::Value& problem : event["problems"]) {
            if (problem["cause"] != cause) continue;
            problem["times"] = problem["times"].asInt() + 1;
            return;
        }
        Json::Value problem;
        problem["cause"] = cause;
        problem["times"] = 1;
        if (look != nullptr) problem["look"] = look->meaning;
        event["problems"].append(problem);
    }

    void describeRun(const RunLog& run, Json::Value& event) const {
        event["zones"] = Json::arrayValue;
        for (const ZoneLog& zone : run.zones) describeZone(run, zone, event);
        event["zone_count"] = event["zones"].size();
        event["failed_zones"] = Json::UInt64(run.failedZones());
        event["unmeasured_zones"] = Json::UInt64(run.unmeasuredZones());
        if (run.zones.size() > run.failedZones() + run.unmeasuredZones()) {
            addFigures(run, run.zones, event);
        }
        if (run.retries) event["counted_retries"] = *run.retries;
        if (run.fails) event["counted_fails"] = *run.fails;

        if (!run.begun) addProblem(event, "its begin is missing", nullptr);
        if (run.refused) addProblem(event, run.trouble->cause, run.trouble);
        if (run.worse != nullptr) addProblem(event, run.worse->cause, run.worse);
        if (run.mapping_failed) addProblem(event, "the linear mapping failed", run.trouble);
        if (event.isMember("problems")) return;
        if (!run.ended) addProblem(event, unended_, nullptr);
        if (run.stopped) addProblem(event, "it was stopped", nullptr);
    }

    void describeZone(const RunLog& run, const ZoneLog& zone, Json::Value& event) const {
        Json::Value& shown = event["zones"].append(Json::objectValue);
        if (!zone.ranges.empty()) shown["ranges"] = quote(zone.ranges);
        if (zone.before) shown["level_before"] = *zone.before;
        if (zone.after) shown["level_after"] = *zone.after;
        addSeconds(zone.begin, zone.end, shown);
        if (zone.retries != 0) shown["retries"] = Json::UInt64(zone.retries);
        shown["result"] = zone.failed ? "failed" : zone.isMeasured() ? "done" : "not measured";
        if (zone.isMeasured()) {
            addFigures(run, {zone}, shown);
            return;
        }
        const bool is_cut = &zone == &run.zones.back() && !run.ended && !zone.failed;
        const LogMeaning* const trouble = is_cut ? nullptr : zone.trouble;
        const char* const cause = trouble != nullptr ? trouble->cause
                                  : is_cut           ? unended_
                                                     : kNoLines;
        shown["cause"] = cause;
        addProblem(event, cause, trouble);
    }

    /** Adds what the measured ones among zones of a run count for, if that is known. */
    void addFigures(const RunLog& run, const std::vector<ZoneLog>& zones,
                    Json::Value& shown) const {
        if (!maker_ && !run.raw_levels) return;
        const Maker* const maker = run.raw_levels ? nullptr : *maker_;
        const Figures figures = measuredFigures(zones, maker);
        shown["before"] = Json::Int64(figures.before);
        shown["after"] = Json::Int64(figures.after);
        if (&zones == &run.zones) {
            shown["maker"] = maker != nullptr ? maker->name : "levels as they are";
        }
    }

    const std::function<void(const Json::Value&)> tell_;
    std::map<Key, Call> calls_;
    /** The maker of the flash, as the service has told it; null for one that it does not know. */
    std::optional<const Maker*> maker_;
    /** The last process that the service was. */
    int process_ = 0;
    /** The service has been heard of. */
    bool started_ = false;
    bool is_own_crash_ = false;
    bool has_died_ = false;
    /** Why the end of a call is not there. */
    const char* unended_ = kNoLines;
    /** What has been said of a death since the last start. */
    std::vector<std::string> errors_;
    Json::Value death_;
};

/** Reads a line, or its beginning if it is too long; false at the end. */
bool readLine(FILE* file, std::string& line) {
    line.clear();
    int c;
    while ((c = getc_unlocked(file)) != EOF && c != '\n') {
        if (line.size() < kLongestLine) line += static_cast<char>(c);
    }
    return c != EOF || !line.empty();
}

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

[[noreturn]] void fail(const std::string& name) {
    throw UsageError(name + ": " + strerror(errno));
}

File openLog(const std::string& name) {
    File file(name == "-" ? fdopen(dup(STDIN_FILENO), "re") : fopen(name.c_str(), "re"), fclose);
    if (file == nullptr) fail(name);
    return file;
}

/** Whether the open file is the regular file in this place. */
bool isAt(const File& file, const std::string& path) {
    struct stat opened {};
    struct stat found {};
    return fstat(fileno(file.get()), &opened) == 0 && stat(path.c_str(), &found) == 0 &&
           S_ISREG(found.st_mode) && opened.st_dev == found.st_dev && opened.st_ino == found.st_ino;
}

void readAll(const File& file, const std::string& name, Explainer& explainer) {
    LogForms forms;
    size_t bytes = 0;
    auto told = std::chrono::steady_clock::now();
    for (std::string line; readLine(file.get(), line);) {
        explainer.take(forms.parse(line));
        bytes += line.size() + 1;
        const auto now = std::chrono::steady_clock::now();
        if (now - told < std::chrono::seconds(1)) continue;
        told = now;
        fprintf(stderr, "fboctl: %zu MB read\n", bytes / 1000000);
    }
    if (ferror(file.get()) != 0) fail(name);
    explainer.end();
}

}  // namespace

ExitStatus explain(const Options& options) {
    if (options.table) {
        printf("%s", describeLog().c_str());
        return kDone;
    }
    const std::string name = options.arguments.empty() ? "-" : options.arguments[0];
    const File file = openLog(name);
    if (isAt(file, options.html)) throw UsageError("--html names the log itself");
    ExplainReport report(options.json, options.html);
    Explainer explainer([&](const Json::Value& event) { report.take(event); });
    try {
        readAll(file, name, explainer);
    } catch (const UsageError& error) {
        report.breakOff(error.what());
        throw;
    }
    return report.finish() ? kDone : kNo;
}

}  // namespace fboctl
