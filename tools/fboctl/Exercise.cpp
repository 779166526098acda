/*
 * Drives the driver's nodes as the service would, and holds each answer against what the service
 * needs. For whoever brings up a driver.
 */

#include <cutils/uevent.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <functional>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include <android-base/file.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>
#include <android-base/unique_fd.h>
#include <json/json.h>

#include "Commands.h"
#include "Controller.h"
#include "Extents.h"
#include "Session.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/defrag/Report.h"
#include "fbo/eua/EuaNodes.h"
#include "fbo/snapshot/DropEvent.h"
#include "fbo/snapshot/SnapshotNodes.h"

namespace fboctl {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

/** One of the device's operations: its control node, and what its state node shows. */
struct Operation {
    const char *name, *control, *command, *state;
    /** While it goes on, right after the start; any of these. */
    std::vector<int> going_on;
    int done;
};

const Operation kUfs40[] = {
        {"analysis", node::kOperationControl, "1", node::kProgState, {1}, 2},
        {"optimisation", node::kOperationControl, "2", node::kProgState, {1}, 3},
};
const Operation kUfs31[] = {
        {"analysis", node::kFlcEnable, "1", node::kFlcOps, {2}, 3},
        {"defragmentation", node::kDefragEnable, "1", node::kDefragOps, {2, 3}, 0},
};

/** The user has hit Ctrl-C. */
struct Interrupted {};

/** What was done to a node, what it showed, and what it should have. */
struct Step {
    std::string what, written, seen, wanted;
    long seconds = 0;
    bool ok = false;
};

/** Makes the steps, and shows each when it is done. */
class Exercise {
  public:
    explicit Exercise(bool json) : json_(json) {}

    /** Goes on with the nodes in `directory`. */
    void enter(const std::string& directory) { directory_ = directory; }

    bool ok() const {
        return std::all_of(steps_.begin(), steps_.end(), [](auto& step) { return step.ok; });
    }
    const std::vector<Step>& steps() const { return steps_; }

    /** Writes `text` by one write(2); returns what the driver says to it: "taken", or why not. */
    std::string write(const std::string& node, const std::string& text) {
        const android::base::unique_fd fd(
                open((directory_ + node).c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
        if (!fd.ok()) return strerror(errno);
        const ssize_t size = ::write(fd.get(), text.data(), text.size());
        if (size < 0) return strerror(errno);
        return size == static_cast<ssize_t>(text.size()) ? "taken" : "taken in part";
    }

    /** What a node shows, or why it cannot be read. */
    std::string readWhole(const std::string& node) {
        std::string text;
        if (!android::base::ReadFileToString(directory_ + node, &text)) return strerror(errno);
        return text;
    }

    std::string read(const std::string& node) { return android::base::Trim(readWhole(node)); }

    /** A store that the driver must take. */
    bool take(const std::string& what, const std::string& node, const std::string& text) {
        return add(what, node, text, write(node, text), "taken");
    }

    /** A store that the driver must refuse: whoever wrote it would go on as if it were done. */
    void refuse(const std::string& what, const std::string& node, const std::string& text) {
        const std::string seen = write(node, text);
        add(what, node, text, seen, seen == "taken" || seen == "taken in part" ? "refused" : seen);
    }

    /** Writes `text`, and looks at once whether `state` shows one of `wanted`. */
    bool see(const std::string& what, const std::string& node, const std::string& text,
             const std::string& state, const std::vector<std::string>& wanted) {
        const std::string written = write(node, text);
        const std::string seen = written == "taken" ? read(state) : written;
        const bool fits = std::find(wanted.begin(), wanted.end(), seen) != wanted.end();
        return add(what, node, text, seen, fits ? seen : android::base::Join(wanted, " or "));
    }

    /** Looks at `state` every so many seconds, `looks` times at most, until it shows `wanted`. */
    bool await(const std::string& what, const std::string& state,
               const std::vector<std::string>& wanted, unsigned interval, int looks) {
        const time_t start = time(nullptr);
        std::string seen = read(state);
        const auto fits = [&] {
            return std::find(wanted.begin(), wanted.end(), seen) != wanted.end();
        };
        while (!fits() && looks-- > 0) {
            checkInterrupted();
            sleep(interval);
            seen = read(state);
        }
        return add(what, state, "", seen, fits() ? seen : android::base::Join(wanted, " or "),
                   static_cast<long>(time(nullptr) - start));
    }

    bool add(const std::string& what, const std::string& node, const std::string& text,
             const std::string& seen, const std::string& wanted, long seconds = 0) {
        const std::string written =
                node +
                (text.empty()
                         ? ""
                         : " \"" + android::base::StringReplace(text, "\n", "\\n", true) + "\"");
        steps_.push_back({what, written.substr(0, 60), seen, wanted, seconds, seen == wanted});
        const Step& step = steps_.back();
        if (!json_) {
            printf("%s %-34s %-40s %s%s%s", step.ok ? "\u2713" : "\u2717", what.c_str(),
                   step.written.c_str(), seen.c_str(),
                   step.ok ? "" : ", wanted: ", step.ok ? "" : wanted.c_str());
            printf(seconds > 0 ? " (%ld s)\n" : "\n", seconds);
            fflush(stdout);
        }
        return step.ok;
    }

    /** Throws at the first Ctrl-C; the next one ends the program. */
    static void checkInterrupted() {
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        const timespec now{};
        if (sigtimedwait(&interrupt, nullptr, &now) != SIGINT) return;
        pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
        throw Interrupted();
    }

  private:
    const bool json_;
    std::string directory_;
    std::vector<Step> steps_;
};

/** What the steps of a feature are made with. */
struct Setup {
    const Options& options;
    Platform& platform;
    /** The file's ranges, as one list without its line feed. */
    const std::string ranges;
};

/** Brings an operation to idle, as the service does: it may take its time. */
bool clear(Exercise& exercise, const Operation& operation, const std::string& from) {
    const std::string what = std::string("clear ") + from;
    if (exercise.read(operation.state) == "0") return true;
    if (!exercise.take(what, operation.control, "0\n")) return false;
    return exercise.await("idle " + from, operation.state, {"0"}, 30, 10);
}

bool clearAll(Exercise& exercise, const Operation (&operations)[2], const std::string& from) {
    return clear(exercise, operations[0], from) && clear(exercise, operations[1], from);
}

/** Starts an operation and waits for its end. */
bool carryOut(Exercise& exercise, const Operation& operation) {
    std::vector<std::string> at_once = {std::to_string(operation.done)};
    for (const int state : operation.going_on) at_once.push_back(std::to_string(state));
    const std::string name = operation.name;
    return exercise.see(name + " starts", operation.control, std::string(operation.command) + "\n",
                        operation.state, at_once) &&
           exercise.await(name + " ends", operation.state, {std::to_string(operation.done)}, 6,
                          200);
}

/** Makes the steps of FBO until one fails on which the others depend. */
void driveFbo(Exercise& exercise, const Setup& setup, bool is31, const Operation (&operations)[2]) {
    const std::string list = setup.ranges + "\n";
    for (const char* name : {node::kDebug, node::kWholefileEnable}) {
        exercise.take("switch", name, "1");
    }
    exercise.take("switch", node::kExeLevel, "0");
    if (!clearAll(exercise, operations, "at first")) return;
    // What a UFS 3.1 device is sent again has no end, as docs/nodes.md says.
    if (!is31)
        exercise.refuse("a list without its end is refused", node::kSendLrList, setup.ranges);
    exercise.refuse("a list of no numbers is refused", node::kSendLrList, "x,y\n");
    exercise.refuse("no start without a list", operations[0].control,
                    std::string(operations[0].command) + "\n");
    clearAll(exercise, operations, "after refusals");
    for (const char* pass : {"first", "second"}) {
        exercise.take(std::string("list of the ") + pass + " pass", node::kSendLrList, list);
        if (is31 && !exercise.await("list is accepted", node::kFlcOps, {"1"}, 30, 10)) return;
        if (!carryOut(exercise, operations[0])) return;
        const std::string report = exercise.readWhole(node::kFragLevel);
        const bool has_level =
                report.size() >= kReportLength && levelOf(report) >= 0 && levelOf(report) <= 10;
        exercise.add("the report has a level", node::kFragLevel, "",
                     has_level ? "level " + std::to_string(levelOf(report)) : report,
                     has_level ? "level " + std::to_string(levelOf(report))
                               : "29 characters or more, the 11th 0 to 9 or a");
        if (pass[0] == 's') break;
        if (!carryOut(exercise, operations[1])) return;
        if (!clearAll(exercise, operations, "after success")) return;
    }
    clearAll(exercise, operations, "after an analysis");
    exercise.take("list before a stop", node::kSendLrList, list);
    if (is31) exercise.await("list is accepted", node::kFlcOps, {"1"}, 30, 10);
    exercise.take("start before a stop", operations[0].control,
                  std::string(operations[0].command) + "\n");
    clearAll(exercise, operations, "in the middle");
    exercise.refuse("no start after a clear", operations[0].control,
                    std::string(operations[0].command) + "\n");
    exercise.take("failures are counted", node::kErrorCount, "1\n");
    exercise.take("retries are counted", node::kRetryCount, "1\n");
}

/** Leaves the device idle, whatever comes. */
void exerciseFbo(Exercise& exercise, const Setup& setup) {
    const bool is31 = exercise.read(node::kIsUfs31) == "1";
    const auto& operations = is31 ? kUfs31 : kUfs40;
    try {
        driveFbo(exercise, setup, is31, operations);
    } catch (const Interrupted&) {
        clearAll(exercise, operations, "after Ctrl-C");
        throw;
    }
    clearAll(exercise, operations, "in the end");
}

void exerciseEua(Exercise& exercise, const Setup& setup) {
    exercise.add("EUA is offered", node::kEuaSupport, "", exercise.read(node::kEuaSupport), "1");
    int size = 0;
    const std::string text = exercise.read(node::kEuaSupportSize);
    const bool has_size = android::base::ParseInt(text, &size, 1);
    exercise.add("the size is above 0", node::kEuaSupportSize, "", text,
                 has_size ? text : "1 or more");
    exercise.refuse("an item of no numbers is refused", node::kEuaUnmap, "x\n");
    exercise.take("an item is taken", node::kEuaUnmap, setup.ranges + "\n");
}

/** Hears what the kernel sends from the moment on at which this is made. */
class Uevents {
  public:
    Uevents() : socket_(uevent_open_socket(64 * 1024, true)) {
        if (!socket_.ok()) throw std::system_error(errno, std::generic_category(), "uevents");
        fcntl(socket_.get(), F_SETFL, O_NONBLOCK);
    }

    /** Waits for a drop event, `patience` at most; whether it has come. */
    bool awaitDropEvent(std::chrono::seconds patience) const {
        const auto end = std::chrono::steady_clock::now() + patience;
        for (;;) {
            Exercise::checkInterrupted();
            // An empty string ends the list, and what fills the buffer may have been cut.
            constexpr ssize_t kRoom = 2048;
            char message[kRoom + 2] = {};
            const ssize_t size = uevent_kernel_multicast_recv(socket_.get(), message, kRoom);
            if (size > 0 && size < kRoom && countDropEvents(message) > 0) return true;
            if (std::chrono::steady_clock::now() > end) return false;
            pollfd look{socket_.get(), POLLIN, 0};
            poll(&look, 1, 100);
        }
    }

  private:
    const android::base::unique_fd socket_;
};

void drop(Exercise& exercise, const std::string& stop) {
    exercise.take(stop, node::kSnapshotCtrl, "stop\n");
    exercise.await("the backup is dropped", node::kSnapshotStatus, {"idle", "drop_by_host"}, 1, 30);
}

void exerciseSnapshot(Exercise& exercise, const Setup& setup) {
    const Uevents uevents;
    exercise.refuse("an unknown word is refused", node::kSnapshotCtrl, "nonsense\n");
    try {
        if (!exercise.take("start", node::kSnapshotCtrl, "start\n")) return;
        exercise.await("the backup is complete", node::kSnapshotStatus, {"complete_backup"}, 1, 30);
        if (setup.options.drop_event > 0) {
            // The simulated device's driver has none of its own to send.
            if (!setup.options.sim.device.empty()) setup.platform.sendDropEvent();
            const auto start = std::chrono::steady_clock::now();
            const bool has_come =
                    uevents.awaitDropEvent(std::chrono::seconds(setup.options.drop_event));
            const std::chrono::duration<double> waited = std::chrono::steady_clock::now() - start;
            exercise.add("the drop event comes", "uevent", "", has_come ? kDropEvent : "none",
                         kDropEvent, std::lround(waited.count()));
        } else {
            fprintf(stderr,
                    "fboctl: not tried: the drop event; --drop-event SECONDS waits for it\n");
        }
    } catch (const Interrupted&) {
        drop(exercise, "stop after Ctrl-C");
        throw;
    }
    drop(exercise, "stop");
}

Json::Value describe(const std::vector<Step>& steps) {
    Json::Value list(Json::arrayValue);
    for (const Step& step : steps) {
        Json::Value entry;
        entry["step"] = step.what;
        entry["node"] = step.written;
        entry["seen"] = step.seen;
        entry["wanted"] = step.wanted;
        entry["seconds"] = Json::Int64{step.seconds};
        entry["ok"] = step.ok;
        list.append(entry);
    }
    return list;
}

/** The file's ranges as one list that fits a store and the device. */
std::string listOf(const std::vector<BlockRange>& ranges, size_t limit) {
    constexpr size_t kStore = 4095;
    std::string list;
    for (size_t i = 0; i < ranges.size() && (limit == 0 || i < limit); ++i) {
        const std::string range =
                std::to_string(ranges[i].start) + "," + std::to_string(ranges[i].count);
        if (list.size() + 1 + range.size() > kStore) break;
        list += (list.empty() ? "" : ",") + range;
    }
    return list;
}

struct Feature {
    const char *name, *directory;
    /** What it does to the device and to FILE. */
    const char* effect;
    bool takes_file, needs_yes, sends_event;
    void (*run)(Exercise& exercise, const Setup& setup);
};

/** Erasing comes last: FILE is used up then. */
constexpr Feature kFeatures[] = {
        {"fbo", kFboDirectory, "moves blocks of FILE inside the flash; what they hold stays", true,
         false, false, exerciseFbo},
        {"snapshot", kSnapshotDirectory,
         "takes a snapshot and drops it, and the one that may be there", false, true, true,
         exerciseSnapshot},
        {"eua", kEuaDirectory, "erases blocks of FILE for good", true, true, false, exerciseEua},
};

/** What the command line asks for: all features unless it names one, and a file for those of them
 * that take one. */
struct Task {
    std::vector<Feature> features;
    std::string file;
};

Task taskOf(const Options& options) {
    Task task;
    std::vector<std::string> words = options.arguments;
    for (const Feature& feature : kFeatures) {
        if (!words.empty() && words[0] == feature.name) task.features = {feature};
    }
    if (task.features.empty()) {
        task.features.assign(std::begin(kFeatures), std::end(kFeatures));
    } else {
        words.erase(words.begin());
    }
    const auto any = [&task](bool Feature::*property) {
        return std::any_of(task.features.begin(), task.features.end(),
                           [property](const Feature& feature) { return feature.*property; });
    };
    if (any(&Feature::takes_file) && words.empty()) throw UsageError("exercise: FILE is missing");
    if (words.size() > any(&Feature::takes_file))
        throw UsageError("exercise " + options.arguments[0] + ": too much after it");
    if (options.drop_event > 0 && !any(&Feature::sends_event))
        throw UsageError("--drop-event is for the exercise of snapshot");
    for (const Feature& feature : task.features) {
        if (feature.needs_yes && !options.yes) {
            throw UsageError(std::string("exercise ") + feature.name + " " + feature.effect +
                             "; --yes says so");
        }
    }
    if (!words.empty()) task.file = words[0];
    return task;
}

}  // namespace

ExitStatus exercise(const Options& options) {
    const Task task = taskOf(options);
    std::vector<FileExtents> files;
    if (!task.file.empty()) files = collectExtents({task.file}, options);
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    const std::unique_ptr<Platform> platform = startPlatform(options.sim, {});
    if (const char* why = platform->whyNoNodes()) throw UsageError(why);
    const Controller controller = findController();
    if (controller.directory.empty())
        throw std::runtime_error("no controller: " + controller.wrong);
    const std::string list = listOf(joinRanges(files), readZoneLimit().value_or(1));
    if (!files.empty() && list.empty()) {
        throw UsageError(files[0].path.string() + ": " +
                         (files[0].error.empty() ? "it has no blocks" : files[0].error));
    }
    Exercise exercise(options.json);
    bool interrupted = false;
    try {
        for (const Feature& feature : task.features) {
            fprintf(stderr, "fboctl: %s: %s\n", feature.name, feature.effect);
            exercise.enter(controller.directory + feature.directory);
            feature.run(exercise, {options, *platform, list});
        }
    } catch (const Interrupted&) {
        interrupted = true;
        fprintf(stderr,
                "fboctl: interrupted; what was done to leave the device idle stands last\n");
    }
    if (options.json) printJson(describe(exercise.steps()));
    return exercise.ok() && !interrupted ? kDone : kNo;
}

}  // namespace fboctl
