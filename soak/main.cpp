/*
 * Runs the service on simulated devices that fail in every way, and looks whether it comes back.
 */

#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <iostream>
#include <map>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

#include "soak/Record.h"
#include "soak/Run.h"
#include "soak/Schedule.h"
#include "soak/Table.h"

namespace {

constexpr char kUsage[] =
        "usage: fbo_soak [RUNS] [--seed SEED] [--jobs JOBS]   10000 runs, unless told otherwise\n"
        "       fbo_soak --seed SEED --run RUN                that run alone, told in full\n";

struct Options {
    uint64_t runs = 10000;
    std::optional<uint64_t> seed;
    std::optional<uint64_t> run;
    uint64_t jobs = std::max(1U, std::thread::hardware_concurrency());
};

uint64_t parseNumber(std::string_view text) {
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument(std::string(text) + " is no number");
    }
    return number;
}

Options parse(const std::vector<std::string_view>& words) {
    Options options;
    for (size_t i = 0; i < words.size(); ++i) {
        const std::string_view word = words[i];
        if (word.substr(0, 2) != "--") {
            options.runs = parseNumber(word);
            continue;
        }
        if (i + 1 == words.size()) throw std::invalid_argument(std::string(word) + " of what?");
        const uint64_t number = parseNumber(words[++i]);
        if (word == "--seed") {
            options.seed = number;
        } else if (word == "--run") {
            options.run = number;
        } else if (word == "--jobs" && number > 0) {
            options.jobs = number;
        } else {
            throw std::invalid_argument("there is no " + std::string(word));
        }
    }
    if (options.run && !options.seed) throw std::invalid_argument("a run needs its seed");
    return options;
}

/**
 * Keeps this process, and those that it will make, on one of the processors that it may use:
 * service and device take turns, and to wake another processor takes longer than most requests.
 */
void stayOnProcessor(size_t number) {
    cpu_set_t allowed;
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0) return;
    number %= static_cast<size_t>(CPU_COUNT(&allowed));
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (!CPU_ISSET(cpu, &allowed) || number-- > 0) continue;
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(cpu, &one);
        sched_setaffinity(0, sizeof(one), &one);
        return;
    }
}

/** Runs side by side, each in a process of its own. */
class Soak {
  public:
    explicit Soak(const Options& options)
        : options_(options), seed_(*options.seed), records_(share(options.jobs)) {
        // The device's process outlives the run's for a moment.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        for (uint64_t i = 0; i < options.jobs; ++i) idle_.push_back(&records_[i]);
    }

    /** True if every run has gone as it should. */
    bool run() {
        const uint64_t first = options_.run.value_or(0);
        const uint64_t end = options_.run ? first + 1 : options_.runs;
        for (uint64_t run = first; run < end; ++run) {
            while (idle_.empty()) reap();
            start(run);
        }
        while (!running_.empty()) reap();
        table_.print(std::cout);
        return table_.violations() == 0;
    }

  private:
    /** Records that the processes to come share with this one. */
    static soak::Record* share(size_t count) {
        void* const shared = mmap(nullptr, count * sizeof(soak::Record), PROT_READ | PROT_WRITE,
                                  MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (shared == MAP_FAILED) throw std::system_error(errno, std::generic_category(), "mmap");
        return static_cast<soak::Record*>(shared);
    }

    void start(uint64_t run) {
        soak::Record& record = *new (idle_.back()) soak::Record{};
        idle_.pop_back();
        record.run = run;
        const pid_t pid = fork();
        if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (pid == 0) {
            stayOnProcessor(static_cast<size_t>(&record - records_));
            const soak::Schedule schedule = soak::draw(seed_, run);
            if (options_.run) std::cerr << describe(schedule);
            carryOut(schedule, record, options_.run.has_value());
            _exit(0);
        }
        running_[pid] = &record;
    }

    /** Waits for the end of a run, or of what one has left behind. */
    void reap() {
        int status = 0;
        const pid_t pid = wait(&status);
        if (pid < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "wait");
        }
        const auto found = running_.find(pid);
        if (found == running_.end()) return;
        soak::Record& record = *found->second;
        running_.erase(found);
        if (record.trouble[0] != '\0') throw std::runtime_error(record.trouble);
        if (status != 0 && record.violation[0] == '\0') {
            const bool hangs = WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM;
            snprintf(record.violation, sizeof(record.violation), "%s",
                     hangs ? "it hangs" : "its process ended by itself");
        }
        table_.add(soak::draw(seed_, record.run), record);
        if (record.violation[0] != '\0') tell(record);
        idle_.push_back(&record);
    }

    void tell(const soak::Record& record) const {
        std::cout << "Run " << record.run << ": " << record.violation
                  << "\n    scripts/soak --seed " << seed_ << " --run " << record.run << std::endl;
    }

    const Options options_;
    const uint64_t seed_;
    soak::Record* const records_;
    std::vector<soak::Record*> idle_;
    std::map<pid_t, soak::Record*> running_;
    soak::Table table_;
};

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options = parse({argv + 1, argv + argc});
        if (!options.seed) options.seed = std::random_device()();
        std::cout << "Seed " << *options.seed << std::endl;
        return Soak(options).run() ? 0 : 1;
    } catch (const std::invalid_argument& error) {
        std::cerr << "fbo_soak: " << error.what() << "\n" << kUsage;
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "fbo_soak: " << error.what() << "\n";
        return 2;
    }
}
