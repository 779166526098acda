#pragma once

#include <fcntl.h>
#include <sched.h>

#include <atomic>
#include <cstdio>
#include <functional>
#include <thread>

#include "Scenario.h"
#include "fbo/Fbo.h"
#include "host/LogSink.h"
#include "sim/Simulator.h"
#include "sim/Uevent.h"

namespace stress {

using vendor::nivora::hardware::fbo::implementation::Fbo;
using vendor::nivora::hardware::fbo::implementation::hidl_string;

/** What all runs come to, in memory that their processes share. */
struct Tally {
    std::atomic<int> runs, events, stops, errors, killed, unkillable, violations;
};

/** The service on a phone, with its log, its descriptors and the phone's traffic watched. */
class Subject {
  public:
    /** @param prints whether to print what happens on standard error. */
    Subject(const Scenario& of, sim::Simulator& on, Tally& in, bool prints)
        : scenario(of), phone(on), tally(in) {
        host::setLogSink([this, prints](int, const char*, const char* line) {
            if (prints) fprintf(stderr, "            log %s\n", line);
            const std::string text = line;
            const auto says = [&](const char* words) { return text.find(words) != text.npos; };
            has_stopped = has_stopped || says("hal stop");
            if (says("drop uevent received")) ++received_;
            if (says("success in uevent") || says("fail in uevent") || says("by pass")) ++done_;
            if (on_line && std::this_thread::get_id() == caller) on_line();
        });
        // Never taken down: the process ends first.
        fbo = new Fbo;
        fbo->incStrong(this);
        sim::awaitListeners(1);
        descriptors_ = openDescriptors();
    }

    /** The traffic since the last time, a line each. */
    std::vector<std::string> takeTrace() {
        const std::vector<std::string> trace = split(phone.trace(), '\n');
        phone.clearTrace();
        return trace;
    }

    /** Has the kernel ask for a drop, after what only looks like that. */
    void sendDrop() {
        using namespace std::string_literals;
        ++sent_;
        sim::sendKernelUevent("change@/x\0EVENT=UFS_SNAPSHOT_DROP_EVENT\0"s);
        sim::sendUserUevent("libudev\0UFS_SNAPSHOT_DROP_EVENT\0"s);
        sim::sendKernelUevent("change@/x\0UFS_SNAPSHOT_DROP_EVENT\0"s);
    }

    /** Waits until the worker has dealt with all requests. */
    void awaitWorker() const {
        while (done_ < sent_) sched_yield();
        require(received_ == sent_, "what is no request for a drop is taken for one");
    }

    void requireNoNewDescriptors() const {
        const std::string now = openDescriptors();
        require(now == descriptors_, "descriptors open:" + now + ", at first:" + descriptors_);
    }

    const Scenario& scenario;
    sim::Simulator& phone;
    Tally& tally;
    Fbo* fbo;
    /** The thread that makes the calls, and what it does at each line that it logs. */
    const std::thread::id caller = std::this_thread::get_id();
    std::function<void()> on_line;
    /** Whether a trigger has heeded a stop. */
    std::atomic<bool> has_stopped = false;

  private:
    static std::string openDescriptors() {
        // New ones get the lowest free number: one left open shows among the first.
        std::string open;
        for (int fd = 0; fd < 64; ++fd) {
            if (fcntl(fd, F_GETFD) >= 0) open += " " + std::to_string(fd);
        }
        return open;
    }

    std::string descriptors_;
    int sent_ = 0;
    std::atomic<int> received_ = 0;
    std::atomic<int> done_ = 0;
};

}  // namespace stress
