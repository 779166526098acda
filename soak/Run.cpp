#include "soak/Run.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <system_error>

#include "sim/Simulator.h"
#include "sim/Tracee.h"
#include "soak/Healing.h"
#include "soak/Partition.h"
#include "soak/Violation.h"
#include "soak/Workload.h"

namespace soak {

namespace {

/** What a service's process ends with; the record says what was violated. */
enum Exit { kGood = 0, kViolated = 1 };

template <size_t kSize>
void put(char (&text)[kSize], const std::string& what) {
    snprintf(text, kSize, "%s", what.c_str());
}

class Run {
  public:
    Run(const Schedule& schedule, Record& record, bool print)
        : schedule_(schedule), record_(record), print_(print), phone_(schedule.device) {
        if (print_) phone_.set("print", "1");
    }

    void carryOut() {
        Partition partition(phone_.gsort());
        phone_.set("record", "1");
        runWorkload();
        if (record_.killed || schedule_.has(Kind::kNoController)) startAnew();
        partition.follow(phone_.trace());
        const std::string difference = partition.difference(Partition(phone_.gsort()));
        require(difference.empty(), "the partition is not as it has to be: " + difference);
    }

  private:
    /** The faults, and the checks too if the service is one that goes on. */
    int serve() {
        return guarded([this] {
            Workload workload(phone_, schedule_, record_, print_);
            workload.run();
            if (schedule_.has(Kind::kNoController)) return;
            Healing(phone_, schedule_, record_, workload.service()).check();
        });
    }

    int serveAnew() {
        return guarded([this] {
            Service service(record_, print_, [] {});
            Healing(phone_, schedule_, record_, service).check();
        });
    }

    int guarded(const std::function<void()>& action) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        try {
            action();
            return kGood;
        } catch (const std::exception& error) {
            put(record_.violation, error.what());
            return kViolated;
        }
    }

    void runWorkload() {
        if (schedule_.kill_at > 0) {
            try {
                runUntilKilled();
                return;
            } catch (const std::system_error& error) {
                if (error.code() != std::errc::function_not_supported) throw;
                record_.kill_skipped = true;
            }
        }
        await(start([this] { return serve(); }));
    }

    void runUntilKilled() {
        sim::Tracee service([this] { return serve(); });
        int calls = 0;
        while (const auto call = service.next()) {
            const bool counts = call->thread == service.pid() && !record_.simulating &&
                                record_.phase == Record::Phase::kWorkload;
            if (!counts || ++calls < schedule_.kill_at) continue;
            service.kill();
            record_.killed = true;
            return;
        }
        judge(service.status());
    }

    void startAnew() {
        if (record_.killed) takeBack(phone_, schedule_, record_);
        record_.fresh = true;
        record_.drops_sent = 0;
        record_.drops_done = 0;
        await(start([this] { return serveAnew(); }));
    }

    static pid_t start(const std::function<int()>& action) {
        const pid_t pid = fork();
        if (pid < 0) throw std::system_error(errno, std::generic_category(), "fork");
        if (pid == 0) _exit(action());
        return pid;
    }

    void await(pid_t pid) const {
        int status = 0;
        while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        judge(status);
    }

    /** Throws for a service that ended by itself, or has told the record of a violation. */
    void judge(int status) const {
        if (WIFEXITED(status) && WEXITSTATUS(status) == kGood) return;
        // A sanitizer may end a process with the same number; it tells the record nothing.
        require(record_.violation[0] != '\0',
                "the service ended, status " + std::to_string(status));
        throw Violation(record_.violation);
    }

    const Schedule& schedule_;
    Record& record_;
    const bool print_;
    sim::Simulator phone_;
};

}  // namespace

void carryOut(const Schedule& schedule, Record& record, bool print) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    alarm(kPatience);
    std::unique_ptr<Run> run;
    try {
        run = std::make_unique<Run>(schedule, record, print);
    } catch (const std::exception& error) {
        put(record.trouble, error.what());
        return;
    }
    try {
        run->carryOut();
    } catch (const std::exception& error) {
        put(record.violation, error.what());
    }
}

}  // namespace soak
