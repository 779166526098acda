/*
 * On a phone the service is another process: its log is read from logcat, and there is no device
 * to simulate.
 */

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include <android-base/unique_fd.h>

#include "Platform.h"

namespace fboctl {

namespace {

using android::base::unique_fd;

constexpr char kPrefix[] = "?/mem_fbo";

/** The time, as logcat takes it. */
std::string describeNow() {
    char text[sizeof("12-31 23:59:59.000")];
    const time_t now = time(nullptr);
    tm local;
    strftime(text, sizeof(text), "%m-%d %H:%M:%S.000", localtime_r(&now, &local));
    return text;
}

/**
 * Becomes logcat, in a process just forked by `parent`, and hands what is logged after `since` to
 * `output`. It ends with `parent`, however that ends.
 */
[[noreturn]] void becomeLogcat(pid_t parent, const std::string& since, int output) {
    // SIGKILL, because logcat may have inherited that other signals are ignored or blocked.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // A parent that ended before the prctl() above causes no signal.
    if (getppid() != parent) _exit(EXIT_FAILURE);
    dup2(output, STDOUT_FILENO);
    execlp("logcat", "logcat", "-T", since.c_str(), "-v", "tag", "-s", "mem_fbo:D", nullptr);
    perror("fboctl: logcat");
    _exit(EXIT_FAILURE);
}

class Phone : public Platform {
  public:
    /** On the main thread: logcat ends with the thread that starts it. */
    explicit Phone(LogReader reader) {
        if (!reader) return;
        unique_fd output;
        unique_fd input;
        if (!android::base::Pipe(&output, &input)) return;
        // Older lines do not belong to this call.
        const std::string since = describeNow();
        const pid_t self = getpid();
        logcat_ = fork();
        if (logcat_ == 0) becomeLogcat(self, since, input.get());
        // The call works without the log, too.
        if (logcat_ < 0) return;
        reader_ = std::thread(
                [fd = output.release(), reader = std::move(reader)] { copy(fd, reader); });
    }

    ~Phone() override {
        if (logcat_ <= 0) return;
        kill(logcat_, SIGKILL);
        reader_.join();
        waitpid(logcat_, nullptr, 0);
    }

    void sendDropEvent() override {
        throw std::invalid_argument("on a phone the driver sends the drop event");
    }

    const char* whyNoService() const override {
        return "the service is not running, or has not registered yet";
    }

    void waitForLog() const override {
        // The log daemon hands lines on within some milliseconds.
        if (logcat_ > 0) std::this_thread::sleep_for(std::chrono::milliseconds(300));
    }

  private:
    static void copy(int fd, const LogReader& reader) {
        FILE* lines = fdopen(fd, "r");
        char* line = nullptr;
        size_t size = 0;
        while (lines != nullptr && getline(&line, &size, lines) > 0) {
            line[strcspn(line, "\n")] = '\0';
            const char* text = strstr(line, ": ");
            if (text == nullptr || strlen(line) < strlen(kPrefix)) continue;
            reader(line[0], text + 2);
        }
        free(line);
        if (lines != nullptr) fclose(lines);
    }

    pid_t logcat_ = -1;
    std::thread reader_;
};

}  // namespace

std::unique_ptr<Platform> startPlatform(const SimOptions& sim, LogReader reader) {
    if (!sim.device.empty() || sim.trace || !sim.state_file.empty()) {
        throw std::invalid_argument("a phone has no simulated device (--sim, --trace)");
    }
    return std::make_unique<Phone>(std::move(reader));
}

int servePhone(const SimOptions&, const ServeOptions&) {
    throw std::invalid_argument("a phone has its service, and no simulated device (run, serve)");
}

void sendDropEventTo(int) {
    throw std::invalid_argument("on a phone the driver sends the drop event");
}

bool isStateLost() {
    return false;
}

std::string describeSim() {
    return "A phone has no simulated devices.\n";
}

}  // namespace fboctl
