#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "Platform.h"
#include "SimulatedDevice.h"
#include "fbo/Fbo.h"
#include "host/LogSink.h"
#include "host/Runtime.h"
#include "sim/Clock.h"
#include "sim/Simulator.h"
#include "sim/Uevent.h"

namespace fboctl {

namespace {

using android::sp;
using vendor::nivora::hardware::fbo::implementation::Fbo;
using vendor::nivora::hardware::fbo::V1_0::IFbo;

/** A host with a simulated device, for which an Fbo of this process can be registered. */
class SimulatedHost : public Platform {
  public:
    SimulatedHost(const SimOptions& sim, LogReader reader) : device_(sim) {
        host::setLogSink([reader = std::move(reader)](int priority, const char*, const char* text) {
            if (reader) reader("??VDIWEF"[priority & 7], text);
        });
    }

    ~SimulatedHost() override { host::setLogSink(nullptr); }

    void startService() override {
        const sp<Fbo> service = new Fbo;
        if (service->registerAsService() != android::OK) {
            throw std::runtime_error("the service cannot be registered");
        }
        // Its worker tells that it starts; amid a call that would read as a service started anew.
        sim::awaitListeners(1);
    }

    const char* whyNoService() const override { return "the service has not registered"; }

    void sendDropEvent() override { sim::sendKernelUevent(sim::dropEvent()); }

    void keepUp() override { sim::followRealTime(); }

  private:
    const SimulatedDevice device_;
};

/** A host on which another program serves a phone: the service's log is in a file there. */
class ServedHost : public Platform {
  public:
    explicit ServedHost(LogReader reader)
        : reader_(std::move(reader)), log_(fopen((host::phoneDirectory() + "/log").c_str(), "re")) {
        if (!reader_ || log_ == nullptr) return;
        // What was logged before is not of this call.
        fseek(log_.get(), 0, SEEK_END);
        follower_ = std::thread([this] {
            std::unique_lock<std::mutex> lock(mutex_);
            while (!ended_) {
                handOn();
                ending_.wait_for(lock, std::chrono::milliseconds(20));
            }
        });
    }

    ~ServedHost() override {
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            ended_ = true;
            ending_.notify_all();
        }
        if (follower_.joinable()) follower_.join();
    }

    const char* whyNoService() const override {
        return log_ == nullptr ? "there is no service; on a host use --sim"
                               : "the service is not running, or has not registered yet";
    }

    const char* whyNoNodes() const override {
        return "the device of another program is out of sight; use --sim";
    }

    /** What a call has logged is in the file when the call ends. */
    void waitForLog() const override {
        const std::lock_guard<std::mutex> lock(mutex_);
        handOn();
    }

    void sendDropEvent() override {
        const sp<IFbo> service = IFbo::tryGetService();
        if (service == nullptr) throw std::runtime_error(whyNoService());
        int pid = 0;
        const auto asked = service->getDebugInfo([&](const auto& info) { pid = info.pid; });
        if (!asked.isOk()) throw std::runtime_error("the service has died");
        // The kernel lets no process with threads into the namespace of a user's phone.
        const pid_t sender = fork();
        if (sender == 0) {
            try {
                sendDropEventTo(pid);
                _exit(EXIT_SUCCESS);
            } catch (const std::exception& error) {
                fprintf(stderr, "fboctl: %s\n", error.what());
                _exit(EXIT_FAILURE);
            }
        }
        int status = -1;
        if (sender < 0 || waitpid(sender, &status, 0) != sender || status != 0) {
            throw std::runtime_error("the drop event could not be sent");
        }
    }

  private:
    /** Hands on the lines that have come, but for those of other clients' calls. */
    void handOn() const {
        if (log_ == nullptr || !reader_) return;
        clearerr(log_.get());
        char* part = nullptr;
        size_t size = 0;
        while (getline(&part, &size, log_.get()) > 0) {
            line_ += part;
            // The rest of a line may still be on its way.
            if (line_.back() != '\n') break;
            line_.pop_back();
            take(line_);
            line_.clear();
        }
        free(part);
    }

    /** Takes a line as host::logTo() writes it. */
    void take(const std::string& line) const {
        int thread = 0;
        int text = 0;
        char priority = 0;
        char tag[32];
        const int found = sscanf(line.c_str(), "%*s %*s %*d %d %c %31[^: ] : %n", &thread,
                                 &priority, tag, &text);
        if (found != 3 || text == 0) return;
        if (strcmp(tag, host::kClientTag) == 0) {
            is_of_others_[thread] = atoi(line.c_str() + text) != getpid();
        } else if (!is_of_others_[thread]) {
            reader_(priority, line.c_str() + text);
        }
    }

    struct Close {
        void operator()(FILE* file) const { fclose(file); }
    };

    const LogReader reader_;
    const std::unique_ptr<FILE, Close> log_;
    mutable std::mutex mutex_;
    /** What has come of a line so far. */
    mutable std::string line_;
    /** Whose calls the service's threads are at; the one that waits for events is at nobody's. */
    mutable std::map<int, bool> is_of_others_;
    std::condition_variable ending_;
    bool ended_ = false;
    std::thread follower_;
};

}  // namespace

std::unique_ptr<Platform> startPlatform(const SimOptions& sim, LogReader reader) {
    if (!sim.device.empty()) return std::make_unique<SimulatedHost>(sim, std::move(reader));
    if (sim.trace || !sim.state_file.empty()) {
        throw std::invalid_argument("--trace and --sim-state need --sim");
    }
    return std::make_unique<ServedHost>(std::move(reader));
}

void sendDropEventTo(int pid) {
    sim::sendKernelUeventTo(pid, sim::dropEvent());
}

std::string describeSim() {
    return sim::Simulator::describe();
}

}  // namespace fboctl
