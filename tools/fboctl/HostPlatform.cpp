#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <android-base/file.h>
#include <android-base/unique_fd.h>

#include "Platform.h"
#include "fbo/Fbo.h"
#include "host/LogSink.h"
#include "sim/Clock.h"
#include "sim/Simulator.h"
#include "sim/Uevent.h"

namespace fboctl {

namespace {

using vendor::nivora::hardware::fbo::implementation::Fbo;

/** The file that keeps the flash's state; opened before the device hides it. */
class StateFile {
  public:
    explicit StateFile(const std::string& path) {
        if (path.empty()) return;
        fd_.reset(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!fd_.ok()) throw std::system_error(errno, std::generic_category(), path);
    }

    std::string read() const {
        std::string text;
        android::base::ReadFdToString(fd_, &text);
        return text;
    }

    void write(const std::string& text) const {
        if (!fd_.ok()) return;
        if (ftruncate(fd_.get(), 0) != 0 || lseek(fd_.get(), 0, SEEK_SET) != 0 ||
            !android::base::WriteStringToFd(text, fd_)) {
            throw std::system_error(errno, std::generic_category(), "state file");
        }
    }

  private:
    android::base::unique_fd fd_;
};

/** A host with a simulated device, and an Fbo of this process registered for it. */
class SimulatedHost : public Platform {
  public:
    SimulatedHost(const SimOptions& sim, LogReader reader)
        : state_(sim.state_file), simulator_(sim.device) {
        host::setLogSink([reader = std::move(reader)](int priority, const char*, const char* text) {
            if (reader) reader("??VDIWEF"[priority & 7], text);
        });
        simulator_.setOptimised(state_.read());
        if (sim.trace) simulator_.set("print", "1");
        const android::sp<Fbo> service = new Fbo;
        if (service->registerAsService() != android::OK) {
            throw std::runtime_error("the service cannot be registered");
        }
    }

    ~SimulatedHost() override {
        host::setLogSink(nullptr);
        try {
            state_.write(simulator_.optimised());
        } catch (const std::exception& error) {
            fprintf(stderr, "fboctl: the device's state is not kept: %s\n", error.what());
        }
    }

    void sendDropEvent() override { sim::sendKernelUevent(sim::dropEvent()); }

    void keepUp() override { sim::followRealTime(); }

  private:
    const StateFile state_;
    sim::Simulator simulator_;
};

}  // namespace

std::unique_ptr<Platform> startPlatform(const SimOptions& sim, LogReader reader) {
    if (!sim.device.empty()) return std::make_unique<SimulatedHost>(sim, std::move(reader));
    if (sim.trace || !sim.state_file.empty()) {
        throw std::invalid_argument("--trace and --sim-state need --sim");
    }
    // A host without a device: no service is to be found.
    return std::make_unique<Platform>();
}

void sendDropEventTo(int pid) {
    sim::sendKernelUeventTo(pid, sim::dropEvent());
}

std::string describeSim() {
    return sim::Simulator::describe();
}

}  // namespace fboctl
