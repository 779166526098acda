#include "TriggerRun.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <initializer_list>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "Parts.h"

namespace fboctl {

namespace {

/** While it exists, the first Ctrl-C sends a stop to the service; the second ends the program. */
class Interrupts {
  public:
    explicit Interrupts(const sp<IFbo>& service) : service_(service) {
        block({SIGINT, kEnd});
        thread_ = std::thread([this] { wait(); });
    }
    ~Interrupts() { end(); }
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    /** Ends the wait for Ctrl-C; a stop that is on its way to the service is waited for. */
    void end() {
        if (!thread_.joinable()) return;
        pthread_kill(thread_.native_handle(), kEnd);
        thread_.join();
    }

    /** Whether the user wants the run to stop. */
    bool interrupted() const { return interrupted_; }
    /** Whether the service has been told so; known after end(). */
    bool stopDelivered() const { return stop_delivered_; }

  private:
    static constexpr int kEnd = SIGUSR1;

    static sigset_t setOf(std::initializer_list<int> signals) {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : signals) sigaddset(&set, signal);
        return set;
    }

    static void block(std::initializer_list<int> signals) {
        const sigset_t set = setOf(signals);
        pthread_sigmask(SIG_BLOCK, &set, nullptr);
    }

    static int await(std::initializer_list<int> signals) {
        const sigset_t set = setOf(signals);
        int signal = 0;
        sigwait(&set, &signal);
        return signal;
    }

    void wait() {
        if (await({SIGINT, kEnd}) == kEnd) return;
        interrupted_ = true;
        letCtrlCEndProgram();
        fprintf(stderr, "\nfboctl: stopping; Ctrl-C again to give up\n");
        sendStop();
        // The second Ctrl-C is delivered to this thread, because the others block it.
        await({kEnd});
    }

    /** Makes the next Ctrl-C end the program, even while the service has not answered the stop. */
    static void letCtrlCEndProgram() {
        const sigset_t interrupt = setOf({SIGINT});
        signal(SIGINT, SIG_DFL);
        pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
    }

    void sendStop() {
        try {
            ask([this] { return service_->FBO_stateCtl("stop", [](const hidl_string&) {}); });
            stop_delivered_ = true;
        } catch (const CallError& error) {
            fprintf(stderr, "fboctl: the stop could not be delivered (%s); the run goes on\n",
                    error.what());
        }
    }

    const sp<IFbo> service_;
    std::atomic<bool> interrupted_ = false;
    std::atomic<bool> stop_delivered_ = false;
    std::thread thread_;
};

void addAnswer(const std::string& answer, RunResult& result) {
    long long before;
    long long after;
    if (sscanf(answer.c_str(), "Fbo:%lld:%lld", &before, &after) != 2) {
        throw CallError("the service answered \"" + answer + "\"");
    }
    result.before += before;
    result.after += after;
}

}  // namespace

RunResult runTrigger(const Session& session, const std::string& request, Progress& progress) {
    constexpr int kNumbersOfRange = 2;
    const std::vector<std::string_view> parts = cutIntoParts(request, ',', kNumbersOfRange);
    std::vector<size_t> ranges;
    for (const std::string_view part : parts) {
        ranges.push_back((std::count(part.begin(), part.end(), ',') + 1) / kNumbersOfRange);
    }
    progress.expect(std::move(ranges));
    RunResult result;
    Interrupts interrupts(session.service());
    auto part = parts.begin();
    do {
        std::string answer;
        ask([&] {
            return session.service()->FBO_trigger(std::string(*part),
                                                  [&](const hidl_string& text) { answer = text; });
        });
        addAnswer(answer, result);
        session.waitForLog();
    } while (++part != parts.end() && !interrupts.interrupted() && !progress.log().stopped);
    interrupts.end();
    progress.finish();
    const RunLog log = progress.log();
    result.zones = log.zones.size();
    result.failed_zones = log.failedZones();
    result.unmeasured_zones = log.unmeasuredZones();
    result.measured = measuredFigures(log.zones, result.before);
    result.refused = log.refused;
    result.mapping_failed = log.mapping_failed;
    // A stop that was not delivered still keeps back what has not been sent.
    result.stopped = interrupts.stopDelivered() || log.stopped || part != parts.end();
    result.unseen = result.zones == 0 && !result.refused && !result.stopped;
    return result;
}

}  // namespace fboctl
