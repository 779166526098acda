#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <vector>

#include "Meter.h"
#include "RunLog.h"

namespace fboctl {

/** Shows how far a run has come, as far as the service's log tells it. Any thread may tell it. */
class Progress {
  public:
    /** @param shows whether to show anything; the log is taken in any case. */
    explicit Progress(bool shows) : meter_("zone", shows) {}

    /** How many ranges each call of the run will have, for the number of zones. */
    void expect(std::vector<size_t> ranges);
    /** Takes a line of the log and shows what it tells. */
    void take(const std::string& text);
    /** Ends the bar, if there is one. */
    void finish();

    /** What the log has told so far. */
    RunLog log() const;

  private:
    size_t expectedZones() const;

    mutable std::mutex mutex_;
    std::vector<size_t> ranges_;
    RunLog log_;
    Meter meter_;
};

}  // namespace fboctl
