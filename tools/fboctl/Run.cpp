#include "Run.h"

#include <pthread.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <string_view>
#include <thread>

namespace fboctl {

namespace {

/** Well below what one binder transaction carries. */
constexpr size_t kMaxRequest = 512 * 1024;

/** Turns Ctrl-C into a stop request while it lives. */
class Interrupts {
  public:
    explicit Interrupts(const sp<IFbo>& service) : service_(service) {
        const sigset_t signals = awaited();
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
        thread_ = std::thread([this] { wait(); });
    }
    ~Interrupts() {
        pthread_kill(thread_.native_handle(), SIGUSR1);
        thread_.join();
    }
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;

    bool stopRequested() const { return stop_requested_; }

  private:
    /** Ctrl-C, and what ends the wait for it. */
    static sigset_t awaited() {
        sigset_t signals;
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGUSR1);
        return signals;
    }

    void wait() {
        const sigset_t signals = awaited();
        int signal = 0;
        while (sigwait(&signals, &signal) == 0 && signal == SIGINT) {
            if (stop_requested_.exchange(true)) endProgram();
            fprintf(stderr, "\nfboctl: stopping; Ctrl-C again to give up\n");
            service_->FBO_stateCtl("stop", [](const hidl_string&) {});
        }
    }

    /** Ends as a program does that does not catch Ctrl-C. */
    static void endProgram() {
        sigset_t interrupt;
        sigemptyset(&interrupt);
        sigaddset(&interrupt, SIGINT);
        signal(SIGINT, SIG_DFL);
        pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
        raise(SIGINT);
    }

    const sp<IFbo> service_;
    std::atomic<bool> stop_requested_ = false;
    std::thread thread_;
};

/** The length of the part of `request` that goes into the next call: whole ranges. */
size_t nextCall(std::string_view request) {
    if (request.size() <= kMaxRequest) return request.size();
    size_t end = 0;
    size_t commas = 0;
    for (size_t i = 0; i < kMaxRequest; ++i) {
        if (request[i] == ',' && ++commas % 2 == 0) end = i + 1;
    }
    return end == 0 ? request.size() : end;
}

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
    RunResult result;
    const Interrupts interrupts(session.service());
    std::string_view rest = request;
    do {
        const std::string part(rest.substr(0, nextCall(rest)));
        std::string answer;
        ask([&] {
            return session.service()->FBO_trigger(part,
                                                  [&](const hidl_string& text) { answer = text; });
        });
        addAnswer(answer, result);
        rest.remove_prefix(part.size());
    } while (!rest.empty() && !interrupts.stopRequested());
    session.waitForLog();
    progress.finish();
    result.zones = progress.zones();
    result.failed_zones = progress.failedZones();
    result.refused = progress.refused();
    result.stopped = interrupts.stopRequested();
    return result;
}

}  // namespace fboctl
