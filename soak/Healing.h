#pragma once

#include <string>
#include <vector>

#include "sim/Simulator.h"
#include "soak/Record.h"
#include "soak/Schedule.h"
#include "soak/Service.h"

namespace soak {

/**
 * Asks everything of a service on a device that is well again, and holds the answers and what
 * reaches the device against what is right. The right answers are worked out from how the device
 * is set up and from its maker's table alone.
 */
class Healing {
  public:
    Healing(sim::Simulator& phone, const Schedule& schedule, Record& record, Service& service);

    /** @throws Violation at the first thing that is not right. */
    void check();

  private:
    void checkQueries();
    void checkTrigger();
    void checkErase();
    void checkSnapshot();
    void dropByEvent();

    /** The device is in the state that a drop ends in. */
    void requireDropped();
    /** The lines traced since the last call. */
    std::vector<std::string> takeTrace();
    int32_t expectedCycles() const;

    sim::Simulator& phone_;
    const Schedule& schedule_;
    Record& record_;
    Service& service_;
    Service::Fbo& fbo_;
    size_t lines_taken_ = 0;
};

}  // namespace soak
