#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "bench/PlainPhone.h"
#include "bench/Sections.h"
#include "bench/Service.h"
#include "bench/Timing.h"
#include "bench/floor.h"

namespace bench {

namespace {

/** The most bytes that the library is to take on a phone. */
constexpr size_t kLargest = 100 * 1024;

/** What loading the last of some libraries took. */
struct Load {
    double nanoseconds = 0;
    long resident_kib = 0;
};

Load load(const std::string& libraries) {
    const std::unique_ptr<FILE, int (*)(FILE*)> run(popen((LOAD " " + libraries).c_str(), "re"),
                                                    pclose);
    Load load;
    if (!run || fscanf(run.get(), "%lf %ld", &load.nanoseconds, &load.resident_kib) != 2) {
        throw std::runtime_error("the library cannot be loaded");
    }
    return load;
}

/** The least of several fresh processes. */
Load leastLoad(const std::string& libraries) {
    constexpr int kProcesses = 20;
    Load least = load(libraries);
    for (int i = 1; i < kProcesses; ++i) {
        const Load next = load(libraries);
        least.nanoseconds = std::min(least.nanoseconds, next.nanoseconds);
        least.resident_kib = std::min(least.resident_kib, next.resident_kib);
    }
    return least;
}

/** What the kernel tells of this process, also once it cannot see /proc any more. */
class Self {
  public:
    Self() : directory_(open("/proc/self", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        if (directory_ < 0) throw std::runtime_error("there is no /proc");
    }
    ~Self() { close(directory_); }
    Self(const Self&) = delete;
    Self& operator=(const Self&) = delete;

    /** Memory that is resident, in KiB. */
    long residentKib() const {
        const std::string text = read("smaps_rollup");
        const size_t at = text.find("Rss:");
        if (at == std::string::npos) throw std::runtime_error("the kernel tells no Rss");
        return std::stol(text.substr(at + 4));
    }

    /** The threads but the first, and how many of them wait for an event without a time-out. */
    std::pair<int, int> threads() const {
        const int tasks = openat(directory_, "task", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        const std::unique_ptr<DIR, int (*)(DIR*)> list(fdopendir(tasks), closedir);
        if (!list) throw std::runtime_error("the kernel lists no threads");
        int count = 0;
        int waiting = 0;
        while (const dirent* entry = readdir(list.get())) {
            const std::string name = entry->d_name;
            if (name[0] == '.' || name == std::to_string(getpid())) continue;
            ++count;
            waiting += isWaiting(read("task/" + name + "/syscall"));
        }
        return {count, waiting};
    }

  private:
    std::string read(const std::string& file) const {
        const int fd = openat(directory_, file.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) throw std::runtime_error("the kernel does not tell " + file);
        char text[4096];
        const ssize_t size = ::read(fd, text, sizeof(text));
        close(fd);
        return std::string(text, std::max<ssize_t>(size, 0));
    }

    /** Whether a thread at the system call `call`, its number and arguments, is in that wait. */
    static bool isWaiting(const std::string& call) {
        long number = -1;
        unsigned long timeout = 0;
        if (sscanf(call.c_str(), "%ld %*s %*s %*s %lx", &number, &timeout) != 2) return false;
        bool waits = number == SYS_epoll_pwait;
#ifdef SYS_epoll_wait
        waits = waits || number == SYS_epoll_wait;
#endif
        return waits && static_cast<int>(timeout) == -1;
    }

    const int directory_;
};

void addLoading(Table& table) {
    const Load alone = leastLoad(LOADED_BEFORE " " BASE " " UEVENTS " " LIBRARY);
    const Load all = leastLoad(LIBRARY);
    const size_t size = std::filesystem::file_size(LIBRARY);
    table.add({"size of the stripped library, bytes", std::to_string(size), "-", "-",
               "< " + std::to_string(kLargest), judgeCount(size < kLargest)});
    table.add({"loading it", duration(alone.nanoseconds)});
    table.add({"resident then, KiB", std::to_string(alone.resident_kib)});
    table.add({"loading it and what it needs", duration(all.nanoseconds)});
    table.add({"resident then, KiB", std::to_string(all.resident_kib)});
}

void addResting(const Self& self, Table& table) {
    // The worker has opened what it waits for, and is about to wait.
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::pair<int, int> threads = self.threads();
    while (threads.second < threads.first && std::chrono::steady_clock::now() < patience) {
        sched_yield();
        threads = self.threads();
    }
    table.add({"threads beside the caller's", std::to_string(threads.first), "-", "-", "1",
               judgeCount(threads.first == 1)});
    table.add({"of these, those that wake up by themselves",
               std::to_string(threads.first - threads.second), "-", "-", "0",
               judgeCount(threads.first == threads.second)});
}

}  // namespace

void measureStartUp(const std::filesystem::path& plain, Table& table) {
    constexpr Effort kEffort = {5, 5};
    table.title("Start-up");
    addLoading(table);
    const Self self;
    PlainPhone::enter(plain);
    const long before = self.residentKib();
    startService();
    const long resident = self.residentKib() - before;
    const auto construct = [] { (new Fbo)->incStrong(nullptr); };
    addResting(self, table);
    table.add(costRow("constructor, CPU time",
                      measure(
                              construct, [] { floor_start_thread(); }, kEffort),
                      0));
    table.add({"resident then, KiB", std::to_string(resident)});
}

}  // namespace bench
