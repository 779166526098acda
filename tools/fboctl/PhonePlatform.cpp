/*
 * On a phone the service is another process: its log is read from logcat, and there is no device
 * to simulate.
 */

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <thread>
#include <utility>

#include "Platform.h"

extern char** environ;

namespace fboctl {

namespace {

constexpr char kPrefix[] = "?/mem_fbo";

class Phone : public Platform {
  public:
    explicit Phone(LogReader reader) {
        if (!reader) return;
        int ends[2];
        if (pipe(ends) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, ends[0]);
        posix_spawn_file_actions_addclose(&actions, ends[1]);
        // What was logged before is not of this call.
        char since[sizeof("12-31 23:59:59.000")];
        const time_t now = time(nullptr);
        tm local;
        strftime(since, sizeof(since), "%m-%d %H:%M:%S.000", localtime_r(&now, &local));
        const char* arguments[] = {"logcat", "-T", since, "-v", "tag", "-s", "mem_fbo:D", nullptr};
        const int error = posix_spawnp(&logcat_, arguments[0], &actions, nullptr,
                                       const_cast<char**>(arguments), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        if (error != 0) {
            // Without the log the run goes on; it only shows no progress.
            close(ends[0]);
            logcat_ = -1;
            return;
        }
        reader_ = std::thread([fd = ends[0], reader = std::move(reader)] { copy(fd, reader); });
    }

    ~Phone() override {
        if (logcat_ <= 0) return;
        kill(logcat_, SIGTERM);
        reader_.join();
        waitpid(logcat_, nullptr, 0);
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

void sendDropEventTo(int) {
    throw std::invalid_argument("on a phone the driver sends the drop event");
}

std::string describeSim() {
    return "A phone has no simulated devices.\n";
}

}  // namespace fboctl
