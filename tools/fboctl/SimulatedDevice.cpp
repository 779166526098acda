#include "SimulatedDevice.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include <android-base/file.h>

namespace fboctl {

namespace {

int openState(const std::string& path) {
    if (path.empty()) return -1;
    const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) throw std::system_error(errno, std::generic_category(), path);
    return fd;
}

}  // namespace

SimulatedDevice::SimulatedDevice(const SimOptions& sim)
    : state_(openState(sim.state_file)), simulator_(sim.device) {
    std::string optimised;
    if (state_.ok()) android::base::ReadFdToString(state_.get(), &optimised);
    simulator_.setOptimised(optimised);
    if (sim.trace) simulator_.set("print", "1");
}

SimulatedDevice::~SimulatedDevice() {
    if (!state_.ok()) return;
    try {
        const std::string optimised = simulator_.optimised();
        if (ftruncate(state_.get(), 0) == 0 && lseek(state_.get(), 0, SEEK_SET) == 0 &&
            android::base::WriteStringToFd(optimised, state_.get())) {
            return;
        }
        throw std::system_error(errno, std::generic_category());
    } catch (const std::exception& error) {
        fprintf(stderr, "fboctl: the device's state is not kept: %s\n", error.what());
    }
}

}  // namespace fboctl
