#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <mutex>

#include <android-base/parseint.h>

#include "Answers.h"
#include "Commands.h"
#include "LogLine.h"
#include "Session.h"
#include "StatusWords.h"

namespace fboctl {

namespace {

// Statuses in which a drop has nothing to do, and which are no rest all the same.
constexpr int32_t kInProgress = 1;
constexpr int32_t kInternalError = 6;

const char* wordOf(int status) {
    return status >= 0 && status < static_cast<int>(std::size(kStatusWords)) ? kStatusWords[status]
                                                                             : "unknown";
}

/** Shows that a call is waiting for the device: a spinner on a terminal, lines elsewhere. */
class Spinner {
  public:
    LogReader reader() {
        return [this](char priority, const std::string& text) {
            // The service tells the status before each wait.
            for (const char* function : {"SnapShot_startBackup", "SnapShot_startDrop"}) {
                const auto status = messageAfter(text, function, "snapshotStatus is ");
                if (priority == 'I' && status) turn(status->front() - '0');
            }
        };
    }

    void finish() {
        if (turns_ > 0 && isatty(STDERR_FILENO) != 0) fputc('\n', stderr);
    }

  private:
    void turn(int status) {
        ++turns_;
        if (isatty(STDERR_FILENO) == 0) {
            fprintf(stderr, "waiting, %s\n", wordOf(status));
        } else {
            fprintf(stderr, "\r%c waiting, %-20s", "|/-\\"[turns_ % 4], wordOf(status));
        }
    }

    unsigned turns_ = 0;
};

/** Makes calls that come to yes or no, with a spinner while they wait; `no` is read afterwards. */
template <typename Calls>
ExitStatus run(const Options& options, const char* name, const char* yes, const char* const* no,
               Calls calls) {
    Spinner spinner;
    const Session session(options, spinner.reader());
    const bool done = calls(*session.service());
    session.waitForLog();
    spinner.finish();
    if (options.json) {
        Json::Value result;
        result[name] = done;
        printJson(result);
    } else {
        printf("%s\n", done ? yes : *no);
    }
    return done ? kDone : kNo;
}

/** The outcome of a drop event that a line of the service's log tells; null if it tells none. */
const char* outcomeOf(const std::string& text) {
    const auto says = [&](const char* start) { return messageAfter(text, "UEventEvent", start); };
    if (says("drop snapshot success in uevent")) return "dropped";
    if (says("drop snapshot fail in uevent")) return "the drop failed";
    if (says("Snapshot drop uevent has been")) return "passed by, so soon after a drop";
    return nullptr;
}

/** Waits for the outcome of one drop event. */
class Outcome {
  public:
    LogReader reader() {
        return [this](char, const std::string& text) {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (messageAfter(text, "UEventWorker", "Creating")) listening_ = true;
            if (const char* outcome = outcomeOf(text)) outcome_ = outcome;
            changed_.notify_all();
        };
    }

    /** Waits until the service's log tells that its uevent thread starts. */
    void awaitListener() {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, kPatience, [this] { return listening_; });
    }

    /** The outcome; null if there is none within `patience`. */
    const char* await(std::chrono::milliseconds patience) {
        std::unique_lock<std::mutex> lock(mutex_);
        changed_.wait_for(lock, patience, [this] { return outcome_ != nullptr; });
        return outcome_;
    }

  private:
    static constexpr std::chrono::seconds kPatience{10};

    std::mutex mutex_;
    std::condition_variable changed_;
    bool listening_ = false;
    const char* outcome_ = nullptr;
};

int parsePid(const std::string& text) {
    int pid = 0;
    if (!android::base::ParseInt(text, &pid, 1)) {
        throw UsageError("snapshot event takes a process id, not \"" + text + "\"");
    }
    return pid;
}

void showEvent(const Options& options, const char* outcome) {
    if (options.json) {
        Json::Value result;
        result["event"] = outcome;
        printJson(result);
    } else {
        printf("drop event: %s\n", outcome);
    }
}

}  // namespace

ExitStatus snapshotBackup(const Options& options) {
    const char* wrong = "There is no complete backup";
    return run(options, "complete", "The backup is complete", &wrong, [](IFbo& service) {
        return bool(ask([&] { return service.SnapShot_startBackup(); }));
    });
}

ExitStatus snapshotDrop(const Options& options) {
    const char* wrong = "The backup could not be dropped";
    return run(options, "dropped", "There is no backup any more", &wrong, [&](IFbo& service) {
        const bool dropped = ask([&] { return service.SnapShot_startDrop(); });
        // Without a complete backup the service answers yes, whatever the device is at instead.
        const int32_t status = ask([&] { return service.SnapShot_getStatus(); });
        if (dropped && status == kInProgress) wrong = "A backup is in progress";
        if (dropped && status == kInternalError) wrong = "The device reports an internal error";
        return dropped && status != kInProgress && status != kInternalError;
    });
}

ExitStatus snapshotStatus(const Options& options) {
    LogLines log;
    const Session session(options, log.reader());
    const int32_t status = ask([&] { return session.service()->SnapShot_getStatus(); });
    session.waitForLog();
    // Both are answered as idle.
    std::string wrong;
    if (!log.find("Open status file failure").empty()) {
        wrong = "the status cannot be read";
    } else if (const std::string line = log.find("status is "); !line.empty()) {
        const std::string word = line.substr(strlen("status is "));
        if (word != wordOf(status)) wrong = "the driver says \"" + word + "\"";
    }
    if (options.json) {
        Json::Value result;
        result["status"] = status;
        result["word"] = wordOf(status);
        if (!wrong.empty()) result["wrong"] = wrong;
        printJson(result);
    } else {
        printf("%s (%d)%s%s\n", wordOf(status), status, wrong.empty() ? "" : "; but ",
               wrong.c_str());
    }
    return wrong.empty() ? kDone : kNo;
}

ExitStatus snapshotWatch(const Options& options) {
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);
    const Session session(options, [&](char, const std::string& text) {
        if (const char* outcome = outcomeOf(text)) {
            printf(options.json ? "{\"event\": \"%s\"}\n" : "drop event: %s\n", outcome);
        }
        fflush(stdout);
    });
    session.platform().keepUp();
    printf(options.json ? "{\"pid\": %d}\n" : "Watching as process %d; Ctrl-C ends it\n", getpid());
    fflush(stdout);
    int signal = 0;
    sigwait(&interrupt, &signal);
    return kDone;
}

ExitStatus snapshotEvent(const Options& options) {
    if (!options.arguments.empty()) {
        sendDropEventTo(parsePid(options.arguments[0]));
        showEvent(options, "sent");
        return kDone;
    }
    Outcome outcome;
    const Session session(options, outcome.reader());
    // The service of a device of this program's own has only just begun.
    if (!options.sim.device.empty()) outcome.awaitListener();
    // An event that comes before the service listens is lost; it is sent until one is heard.
    const char* text = nullptr;
    for (int tries = 0; tries < 50 && text == nullptr; ++tries) {
        session.platform().sendDropEvent();
        text = outcome.await(std::chrono::milliseconds(200));
    }
    showEvent(options, text == nullptr ? "the service did not hear it" : text);
    return text != nullptr && strcmp(text, "dropped") == 0 ? kDone : kNo;
}

}  // namespace fboctl
