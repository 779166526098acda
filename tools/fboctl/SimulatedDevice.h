#pragma once

#include <android-base/unique_fd.h>

#include "Platform.h"
#include "sim/Simulator.h"

namespace fboctl {

/**
 * The simulated device that the user wants: from its making on, this process sees nothing else. At
 * its end the state of its flash is kept, if the user wants that.
 */
class SimulatedDevice {
  public:
    /** Throws std::invalid_argument if there is no such device, or what the system does not allow.
     */
    explicit SimulatedDevice(const SimOptions& sim);
    ~SimulatedDevice();
    SimulatedDevice(const SimulatedDevice&) = delete;
    SimulatedDevice& operator=(const SimulatedDevice&) = delete;

  private:
    /** Opened before the device hides the file; -1 if there is none. */
    const android::base::unique_fd state_;
    sim::Simulator simulator_;
};

}  // namespace fboctl
