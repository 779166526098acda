/*
 * Runs the service on a simulated device that fails, as some bytes have it: those of clang's
 * fuzzer, or of a seeded generator:
 *
 *     fbo_stress RUNS SEED [RUN]
 *
 * The last one picks a single run, which is told in full.
 */

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iostream>
#include <map>
#include <random>
#include <regex>
#include <thread>

#include <android-base/file.h>

#include "../Calls.h"
#include "Scenario.h"
#include "fbo/Globals.h"
#include "host/LogSink.h"
#include "sim/Clock.h"
#include "sim/Simulator.h"
#include "sim/Uevent.h"

// Where the sanitizer counts what the library runs through, if it does, by its own names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" uint8_t __start___sancov_cntrs[] __attribute__((weak));
extern "C" uint8_t __stop___sancov_cntrs[] __attribute__((weak));
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

namespace {

using android::base::Split;
using android::base::StartsWith;

/** What is covered of the library, if that is counted. */
const size_t kCounters = __stop___sancov_cntrs - __start___sancov_cntrs;

/** What all runs come to, and what they cover. */
struct Shared {
    std::atomic<int> good, violations, events, errors, stops, killed;
    uint8_t counters[1 << 20];
};
/** It is in memory that the processes to come share with this one. */
Shared& shared = *static_cast<Shared*>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

/** Ends this process with `what`, which is told to the user, unless `holds`. */
void require(bool holds, const std::string& what) {
    if (holds) return;
    fprintf(stderr, "%s\n", what.c_str());
    _exit(EXIT_FAILURE);
}

/** Changes the device by settings with commas between. */
void change(sim::Simulator& phone, const std::string& settings) {
    for (const std::string& setting : Split(settings, ",")) {
        phone.set(Split(setting, "=")[0], Split(setting, "=")[1]);
    }
}

/** Takes back what is wrong with the device. What that is doing goes on. */
void heal(sim::Simulator& phone, const Scenario& scenario) {
    for (const auto& [moment, key, value] : scenario.events) {
        if (StartsWith(key, "fault.")) phone.set(key, "none");
        const std::string node = key.substr(key.find('.') + 1);
        if (StartsWith(key, "node.") || StartsWith(key, "store.")) phone.set("unscript", node);
    }
    change(phone, scenario.usual);
}

std::string openDescriptors() {
    // New ones get the lowest free number: one left open shows among the first.
    std::string open;
    for (int fd = 0; fd < 64; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) open += " " + std::to_string(fd);
    }
    return open;
}

/** The service on a phone, with its log, its descriptors and the phone's traffic watched. */
class Subject {
  public:
    Subject(const Scenario& scenario, sim::Simulator& phone) : scenario_(scenario), phone_(phone) {
        host::setLogSink([this](int, const char*, const char* line) {
            if (getenv("PRINT") != nullptr) fprintf(stderr, "            log %s\n", line);
            static const std::regex kDropped("drop snapshot .* in uevent|by pass");
            if (strstr(line, "hal stop") != nullptr) ++shared.stops;
            if (std::regex_search(line, kDropped)) ++drops_;
            reachMoment();
        });
        sim::onSleep([this] {
            reachMoment();
            if (std::this_thread::get_id() == caller_) awaitWorker();
            require(++sleeps_ < 10000, "a drop does not come to its end");
        });
        // Never taken down: the process ends first.
        fbo_ = new Fbo;
        fbo_->incStrong(this);
        sim::awaitListeners(1);
        descriptors_ = openDescriptors();
    }

    /** Makes the calls of the run while its events happen. Leaves the device well again. */
    void work() {
        caller_ = std::this_thread::get_id();
        reachMoment();
        std::thread beside([this] {
            for (const Call& call : scenario_.calls_beside) make(call);
        });
        for (const Call& call : scenario_.calls) {
            // A stop that is requested before a call holds for none.
            phone_.clearTrace();
            make(call);
            checkTraffic(call.text);
        }
        beside.join();
        awaitWorker();
        caller_ = {};
        heal(phone_, scenario_);
        require(openDescriptors() == descriptors_, "a descriptor is left open");
    }

    /**
     * Asks everything of the service, on a device that is well again. Its answers and what it
     * writes have to be right.
     */
    void recover() {
        // The longest time that a clear has been set to take.
        sleep(400);
        const std::string seconds = std::to_string(6 * scenario_.looks);
        change(phone_, "analysis=" + seconds + ",optimise=" + seconds + ",snapshot=2,backup=29," +
                               (is_slow_ ? "drop=30," : "") +
                               "prop.vendor.snapshot_devicefreeblock=5");
        // A report that was wrong is kept for the life of the process.
        fbo_->pe_cycle = kWearUnread;
        // As if a run that was stopped had counted them.
        cmd_fail_count = 7;
        cmd_retry_count = 0;
        phone_.clearTrace();
        askQueries();
        askTrigger();
        askSnapshot();
        require(openDescriptors() == descriptors_, "a descriptor is left open");
    }

  private:
    /** Makes a call. An error that ends it has to be one that may. */
    void make(const Call& call) {
        static const std::regex kErrors("\\w+ (invalid_argument|out_of_range|bad_optional_access)");
        static const std::regex kMayBe(
                "(FBO_trigger|SnapShot_startBackup|EUA_isSupport|EUA_SupportSize|EUA_GetFree\\w+) "
                "(invalid_argument|out_of_range)|FBO_VersionCtrl out_of_range");
        const std::string answer =
                call.method + " " + callByName(*fbo_, call.method + " " + call.text);
        if (!std::regex_match(answer, kErrors)) {
            static const std::regex kForm("FBO_trigger Fbo:-?\\d+:-?\\d+|(?!FBO_trigger)[^]*");
            return require(std::regex_match(answer, kForm), "no client understands " + answer);
        }
        const bool may_be = call.text == "V" || !scenario_.events.empty();
        require(may_be && std::regex_match(answer, kMayBe), "an error escapes: " + answer);
        ++shared.errors;
    }

    /** Whatever happens, nothing is repeated too often, and not much comes after a stop. */
    void checkTraffic(const std::string& request) const {
        if (!scenario_.calls_beside.empty() || sent_ > 0) return;
        std::map<std::string, int> counts;
        const auto count = [&counts](const std::string& what, int limit) {
            require(++counts[what] <= limit, "too often: " + what);
        };
        std::string last;
        bool is_stopped = false;
        for (const std::string& line : Split(phone_.trace(), "\n")) {
            const std::string what = line.substr(0, line.find(" \""));
            const bool is_sleep = StartsWith(what, "sleep");
            is_stopped = (is_stopped || what == "stop") && what != "continue";
            if (is_stopped && (what == "sleep 6" || what == "read is_ufs31"))
                count("stop, " + what, 1);
            // In a row is what nothing comes between but looks at the same node.
            if (!is_sleep && std::exchange(last, what) != what) counts["sleep"] = 0;
            if (is_sleep) count("sleep", what == "sleep 1" ? 30 : what == "sleep 30" ? 10 : 200);
            // A UFS 3.1 device that fails so is asked again without limit.
            if (what == "read fbs_defrag_ops" && line.find("255") != line.npos) return;
            // Two passes, one of which is tried again.
            if (what == "write fbo_send_lr_list" && request.back() == ',') count(line, 3);
        }
    }

    /** Has happen what is to happen at the next moment of the calling thread. */
    void reachMoment() {
        if (std::this_thread::get_id() != caller_) return;
        for (const Event& event : scenario_.events) {
            if (event.moment == moment_) happen(event);
        }
        // A defragmentation that always fails is started over without limit.
        if (++moment_ == 5000) heal(phone_, scenario_);
        // No call of a sound service comes that far, and the trace grows with each step.
        require(moment_ < 50000, "a call does not come to its end");
    }

    void happen(const Event& event) {
        ++shared.events;
        if (event.key == "tell") {
            // From another thread, as a client's stop comes, but at a moment that is known.
            std::thread([&] { callByName(*fbo_, "FBO_stateCtl " + event.value); }).join();
            phone_.note(event.value);
        } else if (event.key == "uevent") {
            sendDrop();
        } else {
            phone_.set(event.key, event.value);
        }
    }

    /** Has the kernel ask for a drop, after what only looks like that. */
    void sendDrop() {
        ++sent_;
        sim::sendKernelUevent(sim::uevent({"change@/x", "EVENT=UFS_SNAPSHOT_DROP_EVENT"}));
        sim::sendUserUevent(sim::dropEvent());
        sim::sendKernelUevent(sim::dropEvent());
    }

    /** Waits until the worker has dealt with all requests. */
    void awaitWorker() const {
        while (drops_ < sent_) sched_yield();
        require(drops_ == sent_, "what is no request for a drop is taken for one");
    }

    /** Two zones, of which the first has three seams and the other one has one. */
    void askTrigger() {
        // Ranges that no call has named before.
        const std::string first = "100000000,8,100000010,8,100000020,8,100000030,8";
        const std::string second = "100000040,8,100000048,8,100000070,8";
        const std::string list = "fbo_send_lr_list=";
        // A seam that was optimised counts a tenth.
        const auto figure = [this](int level) { return 256 * fbo_->level_to_num.at(level); };
        ask("FBO_trigger " + first + "," + second + ",",
            "Fbo:" + std::to_string(figure(10) + figure(5)) + ":" + std::to_string(2 * figure(1)),
            "debug=1 fbo_exe_level=0 " + list + first + "\n " + list + first +
                    "\n fbo_wholefile_enable=1 " + list + second + "\n " + list + second +
                    "\n fbo_err_cnt=7\n fbo_retry_cnt=" + std::to_string(6 * scenario_.looks) +
                    "\n " + (is31_ ? "" : list + "0,262144\n "));
        require(cmd_fail_count == 0 && cmd_retry_count == 0, "the counters go on");
    }

    void askQueries() {
        // Flash that is worn out is not worth it; the phone called tarno must not erase.
        const bool has_eua = scenario_.profile.phone != "tarno";
        ask("FBO_VersionCtrl V:1.0,1.0:ON", std::stoi(scenario_.wear) < 2400 ? "true" : "false");
        ask("FBO_GCADisCard", "true", "gc_urgent=1\n ");
        ask("EUA_SupportSize", has_eua ? "65536" : "0");
        ask("EUA_GetFreeSpaceAPECycle", scenario_.wear + (has_eua ? ":1" : ":0"));
        ask("EUA_SendEraseCmd 1,8:2,9:", "true",
            "eua_file_lba_unmap=1,8\n eua_file_lba_unmap=2,9\n ");
    }

    void askSnapshot() {
        // Such flash takes its time before and after a snapshot, and keeps blocks free.
        std::string threshold = is_slow_ ? "dropfreesize=1310720\n " : "";
        ask("SnapShot_startDrop", "true", "ctrl=stop\n ");
        for (int i = 0; i < 2; ++i) {
            ask("SnapShot_startBackup", "true",
                "drop_caches=3\n drop_caches=3\n drop_caches=3\n gsort=107 " +
                        std::exchange(threshold, "") + "ctrl=start\n ");
            // Sooner after another drop the worker passes an event by.
            sleep(4);
            sendDrop();
            awaitWorker();
            ask("SnapShot_getStatus", is_slow_ ? "0" : "4", "ctrl=stop\n ");
        }
    }

    /**
     * Makes a call that has to answer `right` and to write `writes`, and nothing else but what
     * starts and clears the device's operations. A list has to be sent to a device that the
     * service knows to be idle.
     */
    void ask(const std::string& call, const std::string& right, const std::string& writes = "") {
        static const std::regex kControls("fbo_operation_control|fbs_.*_enable");
        static const std::regex kStates("fbo_prog_state|fbs_.*_ops");
        const std::string answer = callByName(*fbo_, call);
        require(answer == right, call + " answers " + answer + " instead of " + right);
        std::string written;
        Texts states;
        for (const sim::Event& event : phone_.events()) {
            if (std::regex_match(event.node, kStates)) states[event.node] = event.text;
            const bool is_control = std::regex_match(event.node, kControls);
            if (event.kind != sim::Event::kWrite || is_control) continue;
            written += event.node + "=" + event.text + event.error + " ";
            if (event.node != "fbo_send_lr_list") continue;
            require(states == idle_, "a list is sent to a device that is not known to be idle");
        }
        require(written == writes, call + " writes\n" + written + "instead of\n" + writes);
        phone_.clearTrace();
    }

    const Scenario& scenario_;
    using Texts = std::map<std::string, std::string>;
    const bool is31_ = scenario_.profile.generation == sim::Generation::kUfs31;
    const bool is_slow_ = Names::isSlow(scenario_.profile);
    /** The states that nodes tell while the device is idle. */
    const Texts idle_ = is31_ ? Texts{{"fbs_flc_ops", "0\n"}, {"fbs_defrag_ops", "0\n"}}
                              : Texts{{"fbo_prog_state", "0\n"}};
    sim::Simulator& phone_;
    Fbo* fbo_ = nullptr;
    /** The thread that makes the calls, while events are to happen at its sleeps and lines. */
    std::thread::id caller_;
    size_t moment_ = 0;
    std::string descriptors_;
    int sent_ = 0;
    std::atomic<int> drops_ = 0;
    std::atomic<int> sleeps_ = 0;
};

/**
 * Does `action` in a process of its own, and returns what that ends with. The process is killed at
 * stop number `last_stop` of its first thread, which stops where each system call begins and ends,
 * until it stops itself; 0: never.
 */
template <typename Action>
int inProcess(Action action, size_t last_stop = 0) {
    const pid_t pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (last_stop > 0) {
            require(ptrace(PTRACE_TRACEME) == 0, "a process cannot be traced");
            raise(SIGTRAP);
        }
        action();
        for (size_t i = 0; i < kCounters; ++i) {
            shared.counters[i] = std::max(shared.counters[i], __start___sancov_cntrs[i]);
        }
        _exit(EXIT_SUCCESS);
    }
    int status = EXIT_FAILURE;
    waitpid(pid, &status, 0);
    for (size_t stops = 1; WIFSTOPPED(status); ++stops) {
        const int signal = WSTOPSIG(status);
        if (stops == last_stop) kill(pid, SIGKILL);
        ptrace(signal == SIGSTOP ? PTRACE_DETACH : PTRACE_SYSCALL, pid, nullptr,
               signal == SIGSTOP || signal == SIGTRAP ? 0 : signal);
        waitpid(pid, &status, 0);
    }
    if (WIFSIGNALED(status) && status != SIGKILL) psignal(status, "a process");
    return status;
}

/** Has a service work on a phone, and recover; or a new one if that is killed. */
void enterPhone(const Scenario& scenario) {
    // Seconds of real time after which a run hangs, on however busy a machine.
    alarm(120);
    sim::Simulator phone(scenario.device);
    change(phone, getenv("PRINT") != nullptr ? "record=1,print=1" : "record=1");
    if (!scenario.has_record) change(phone, "gsort_size=0," + scenario.usual);
    int status = inProcess(
            [&] {
                Subject subject(scenario, phone);
                subject.work();
                if (scenario.last_stop > 0) raise(SIGSTOP);
                subject.recover();
            },
            scenario.last_stop);
    if (status == SIGKILL) {
        ++shared.killed;
        heal(phone, scenario);
        status = inProcess([&] { Subject(scenario, phone).recover(); });
    }
    require(status == 0, "so the service has gone wrong");
    // The boot LUN in use is the one that a record protects, and nothing else has changed.
    const off_t before = 4096;
    std::string right(2 * before, '\0');
    // 16909320, in the order of the processor.
    const std::string lun = "\x08\x04\x02\x01";
    right.replace(before + 35, 4, lun);
    if (scenario.has_record) right.replace(before, 8, "snapshot").replace(before + 39, 4, lun);
    std::string is(right.size(), '?');
    const android::base::unique_fd fd(open("/dev/block/by-name/gsort", O_RDONLY | O_CLOEXEC));
    android::base::ReadFullyAtOffset(fd, is.data(), is.size(), 9 * 1024 * 1024 - before);
    require(is == right, "the partition's record is wrong, or what is around it");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // The fuzzer looks at the counters of its own process; the service is in others.
    memset(shared.counters, 0, kCounters);
    // The device's process outlives the run's for a moment.
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    const Scenario scenario{Bytes({data, data + size})};
    if (getenv("PRINT") != nullptr) fprintf(stderr, "%s\n", scenario.device.c_str());
    if (inProcess([&] { enterPhone(scenario); }) != 0) exit(EXIT_FAILURE);
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
    std::copy_n(shared.counters, kCounters, __start___sancov_cntrs);
    return 0;
}

#ifndef FBO_FUZZ

namespace {

void carryOut(unsigned seed, unsigned run) {
    std::seed_seq mixed{seed, run};
    std::mt19937 random(mixed);
    std::vector<uint8_t> bytes(1024);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    if (inProcess([&] { LLVMFuzzerTestOneInput(bytes.data(), bytes.size()); }) == 0) {
        ++shared.good;
    } else {
        ++shared.violations;
        fprintf(stderr, "Run %u is wrong: scripts/soak --seed %u --run %u\n", run, seed, run);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto number = [&](int i) { return i < argc ? strtoul(argv[i], nullptr, 10) : 0; };
    if (argc > 3) setenv("PRINT", "1", 1);
    const unsigned runs = argc > 3 ? 1 : number(1);
    // As many processes at a time as there are processors.
    const unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
    for (unsigned job = 0; job < jobs; ++job) {
        if (fork() > 0) continue;
        for (unsigned i = job; i < runs; i += jobs) carryOut(number(2), number(3) + i);
        _exit(EXIT_SUCCESS);
    }
    while (wait(nullptr) > 0) {
    }
    std::cout << shared.good + shared.violations << " of " << runs << " runs with seed "
              << number(2) << ": " << shared.events << " events, " << shared.errors
              << " errors escaped, " << shared.stops << " stops were heeded, " << shared.killed
              << " services killed; " << shared.violations << " violations\n";
    return runs > 0 && shared.good == static_cast<int>(runs) ? EXIT_SUCCESS : EXIT_FAILURE;
}

#endif
