/*
 * A maintenance daemon in small. Its arguments are the seconds between two slices of work, and the
 * slices: ranges as FBO_trigger() takes them. It goes through them again and again until SIGTERM
 * or SIGINT. A real one collects the ranges, and waits for the phone to be idle.
 */

#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <hidl/Status.h>
#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

namespace {

using namespace ::android;
using namespace ::android::hardware;
using namespace ::android::hidl::base::V1_0;
using std::chrono::seconds;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

/** What fits beside the requests of other clients. */
constexpr size_t kMaxSlice = 256 * 1024;

class Daemon : public hidl_death_recipient {
  public:
    Daemon(seconds period, std::vector<std::string> slices)
        : period_(period), slices_(std::move(slices)) {}

    /** Works, for ever. On a thread of its own, as most of its calls block. */
    [[noreturn]] void run() {
        for (;; pause(seconds(1))) {
            // Waits for as long as the service is declared and does not run.
            const sp<IFbo> service = IFbo::getService();
            if (service == nullptr) fail("no manifest declares the service");
            if (connect(service)) work(service);
        }
    }

    /** Has the running slice end early, and waits for that. From another thread than run(). */
    void stop() {
        std::unique_lock<std::mutex> lock(mutex_);
        stopping_ = true;
        while (triggering_ != nullptr) {
            const sp<IFbo> service = triggering_;
            lock.unlock();
            const Return<void> stopped = service->FBO_stateCtl("stop", [](const hidl_string&) {});
            if (!stopped.isOk()) std::cerr << "no stop: " << stopped.description() << std::endl;
            lock.lock();
            // Again, as a trigger that begins just now takes the stop back.
            changed_.wait_for(lock, seconds(1), [this] { return triggering_ == nullptr; });
        }
    }

    void serviceDied(uint64_t cookie, const wp<IBase>&) override {
        const std::lock_guard<std::mutex> lock(mutex_);
        dead_ = cookie;
        changed_.notify_all();
    }

  private:
    [[noreturn]] static void fail(const std::string& reason) {
        std::cerr << "maintenance_daemon: " << reason << std::endl;
        _exit(EXIT_FAILURE);
    }

    /** Whether the service lives and will be missed. */
    bool connect(const sp<IFbo>& service) {
        const Return<bool> linked = service->linkToDeath(this, ++connection_);
        if (!linked.isOk() || !linked) return false;
        const Return<bool> supported = service->FBO_isSupport();
        if (!supported.isOk()) return false;
        if (!supported) fail("this device does not defragment");
        int32_t process = 0;
        const Return<void> told =
                service->getDebugInfo([&](const DebugInfo& info) { process = info.pid; });
        if (told.isOk()) std::cout << "the service is process " << process << std::endl;
        return true;
    }

    /** Slice after slice, until the service dies. */
    void work(const sp<IFbo>& service) {
        do {
            // A slice that fails is not sent again at once: it may be what the service died of.
            const size_t slice = next_++ % slices_.size();
            setTriggering(service);
            std::string figures;
            const Return<void> done = service->FBO_trigger(
                    slices_[slice], [&](const hidl_string& result) { figures = result; });
            setTriggering(nullptr);
            std::cout << "slice " << slice << ": " << (done.isOk() ? figures : done.description())
                      << std::endl;
        } while (pause(period_));
        std::cout << "the service has died" << std::endl;
    }

    void setTriggering(const sp<IFbo>& service) {
        std::unique_lock<std::mutex> lock(mutex_);
        // No more slices: the process is about to end.
        if (service != nullptr) changed_.wait(lock, [this] { return !stopping_; });
        triggering_ = service;
        changed_.notify_all();
    }

    /** Waits. False, and at once, if the service is dead. */
    bool pause(seconds time) {
        std::unique_lock<std::mutex> lock(mutex_);
        return !changed_.wait_for(lock, time, [this] { return dead_ == connection_; });
    }

    const seconds period_;
    const std::vector<std::string> slices_;
    size_t next_ = 0;

    /** Guards what follows; connection_ is written by run() alone. */
    std::mutex mutex_;
    std::condition_variable changed_;
    uint64_t connection_ = 0;
    uint64_t dead_ = 0;
    sp<IFbo> triggering_;
    bool stopping_ = false;
};

}  // namespace

int main(int count, char** arguments) {
    const std::vector<std::string> slices(arguments + (count < 3 ? count : 2), arguments + count);
    bool usable = !slices.empty();
    for (const std::string& slice : slices) usable = usable && slice.size() <= kMaxSlice;
    if (!usable) {
        std::cerr << "usage: maintenance_daemon SECONDS RANGES..., with 256 KiB of ranges at most"
                  << std::endl;
        return EXIT_FAILURE;
    }
    // Every thread leaves the signals to this one.
    sigset_t ends;
    sigemptyset(&ends);
    sigaddset(&ends, SIGTERM);
    sigaddset(&ends, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ends, nullptr);
    const sp<Daemon> daemon = new Daemon(seconds(atol(arguments[1])), slices);
    std::thread([daemon] { daemon->run(); }).detach();
    int signal = 0;
    sigwait(&ends, &signal);
    daemon->stop();
    // By _exit(), as the other thread may wait for a service that nobody starts.
    _exit(EXIT_SUCCESS);
}
