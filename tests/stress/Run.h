#pragma once

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <csignal>
#include <cstring>

#include "RecoveryCheck.h"
#include "Workload.h"

namespace stress {

/** Something, all 0, that the processes to come share with this one. */
template <typename Shared>
Shared* share(size_t count = 1) {
    void* const shared = mmap(nullptr, count * sizeof(Shared), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    require(shared != MAP_FAILED, "there is no memory to share");
    return static_cast<Shared*>(shared);
}

/** The processes of a run. Each one that goes wrong says so on standard error. */
class Run {
  public:
    /** @param at_end is called in each process at its end, unless it is killed. */
    Run(
            const Scenario& scenario, Tally& tally, bool prints, void (*at_end)() = [] {})
        : scenario_(scenario), tally_(tally), prints_(prints), at_end_(at_end) {}

    /** Whether everything was as it has to be. */
    bool carryOut() {
        // The device's process outlives the run's for a moment.
        prctl(PR_SET_CHILD_SUBREAPER, 1);
        const bool is_good = await(start([this] { enterPhone(); })) == 0;
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        ++tally_.runs;
        if (!is_good) ++tally_.violations;
        return is_good;
    }

  private:
    void enterPhone() {
        // Seconds of real time after which a run hangs, on however busy a machine.
        alarm(120);
        // Service and device take turns: to wake another processor takes longer than they do.
        cpu_set_t processor;
        CPU_ZERO(&processor);
        CPU_SET(sched_getcpu(), &processor);
        sched_setaffinity(0, sizeof(processor), &processor);

        sim::Simulator phone(scenario_.device);
        // Sometimes the record is another one.
        const std::string partition = readPartition(Bytes(scenario_.rest).below(4) == 1);
        if (prints_) phone.set("print", "1");
        phone.set("record", "1");
        const int status = await(start([&] { serve(phone); }), scenario_.kill_at);
        require(status == 0 || status == kKilled, "so the service has gone wrong");
        if (status == kKilled) {
            ++tally_.killed;
            takeBack(phone, scenario_);
            const pid_t fresh = start([&] {
                Subject subject(scenario_, phone, tally_, prints_);
                RecoveryCheck(subject, true).run();
            });
            require(await(fresh) == 0, "so a new service has gone wrong");
        }
        checkPartition(partition, readPartition(false));
    }

    /** The faults, and the questions in the end. */
    void serve(sim::Simulator& phone) {
        Subject subject(scenario_, phone, tally_, prints_);
        // From here on the other process sees this thread enter and leave the kernel.
        if (scenario_.kill_at > 0) {
            const bool is_seen = ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0;
            is_seen ? (void)raise(SIGSTOP) : (void)++tally_.unkillable;
        }
        Workload(subject).run();
        RecoveryCheck(subject, false).run();
    }

    template <typename Action>
    pid_t start(Action action) {
        const pid_t pid = fork();
        require(pid >= 0, "no process can be started");
        if (pid > 0) return pid;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        int status = 0;
        try {
            action();
        } catch (const std::exception& error) {
            fprintf(stderr, "%s\n", error.what());
            status = 1;
        }
        at_end_();
        _exit(status);
    }

    /** What a process ends with. Kills one that is traced after so many stops. */
    static int await(pid_t pid, int kill_at = 0) {
        int status = 0;
        for (int stops = 0; waitpid(pid, &status, 0) == pid && WIFSTOPPED(status); ++stops) {
            const int signal = WSTOPSIG(status);
            const bool is_own = signal == SIGSTOP || signal == SIGTRAP;
            if (stops == kill_at) {
                kill(pid, SIGKILL);
                waitpid(pid, &status, 0);
                return kKilled;
            }
            ptrace(PTRACE_SYSCALL, pid, nullptr, is_own ? 0 : signal);
        }
        if (WIFSIGNALED(status)) fprintf(stderr, "%s\n", strsignal(WTERMSIG(status)));
        return status;
    }

    /** The partition around the boot-LUN record, of which a letter can be changed before. */
    static std::string readPartition(bool is_changed) {
        std::string bytes(2 * kRecord, '\0');
        const int fd = open("/dev/block/by-name/gsort", O_RDWR | O_CLOEXEC);
        if (is_changed) require(pwrite(fd, "T", 1, kPart + kRecord + 7) == 1, "no record");
        const ssize_t size = pread(fd, bytes.data(), bytes.size(), kPart);
        require(size == static_cast<ssize_t>(bytes.size()), "the partition is too short");
        close(fd);
        return bytes;
    }

    /** The boot LUN in use is the one that is protected; what a fault has cut off may be 0. */
    void checkPartition(const std::string& before, const std::string& after) const {
        const bool is_record = after.compare(kRecord, 8, "snapshot") == 0;
        for (size_t i = 0; i < after.size(); ++i) {
            const bool is_lun = is_record && i >= kRecord + 39 && i < kRecord + 43;
            const char right = is_lun ? after[i - 4] : before[i];
            require(after[i] == right || (after[i] == 0 && scenario_.has("gsort_size")),
                    "byte " + std::to_string(kPart + i) + " of the partition is wrong");
        }
    }

    static constexpr int kKilled = -1;
    /** Where the part begins that is looked at, and in that the record. */
    static constexpr off_t kPart = 9 * 1024 * 1024 - 4096;
    static constexpr size_t kRecord = 4096;

    const Scenario& scenario_;
    Tally& tally_;
    const bool prints_;
    void (*const at_end_)();
};

}  // namespace stress
