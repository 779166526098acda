#pragma once

#include <memory>

#include "Platform.h"
#include "StateFile.h"
#include "sim/Simulator.h"

namespace fboctl {

/**
 * The simulated device that the user wants: from its making on, this process sees nothing else. At
 * its end the state of its flash is kept, if the user wants that.
 */
class SimulatedDevice {
  public:
    /**
     * Throws std::invalid_argument if there is no such device, or the file holds no state, and
     * another std::exception if the file is in use or the system does not allow it.
     */
    explicit SimulatedDevice(const SimOptions& sim);
    ~SimulatedDevice();
    SimulatedDevice(const SimulatedDevice&) = delete;
    SimulatedDevice& operator=(const SimulatedDevice&) = delete;

  private:
    /** Opened before the device hides the file; may be null. */
    const std::unique_ptr<StateFile> state_;
    sim::Simulator simulator_;
};

}  // namespace fboctl
