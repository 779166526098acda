#include "SimulatedDevice.h"

#include <atomic>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace fboctl {

namespace {

std::atomic<bool> state_is_lost = false;

}  // namespace

SimulatedDevice::SimulatedDevice(const SimOptions& sim)
    : state_(sim.state_file.empty() ? nullptr : std::make_unique<StateFile>(sim.state_file)),
      simulator_(sim.device) {
    try {
        if (state_) simulator_.setOptimised(state_->read());
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument(sim.state_file + " is no state file");
    }
    if (sim.trace) simulator_.set("print", "1");
}

SimulatedDevice::~SimulatedDevice() {
    if (!state_) return;
    try {
        state_->keep(simulator_.optimised());
    } catch (const std::exception& error) {
        fprintf(stderr, "fboctl: the device's state is not kept: %s\n", error.what());
        state_is_lost = true;
    }
}

bool isStateLost() {
    return state_is_lost;
}

}  // namespace fboctl
