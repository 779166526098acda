#pragma once

#include <cstddef>
#include <mutex>
#include <string>

#include "Meter.h"

namespace fboctl {

/** How far a run has come, as far as the service's log tells it. */
class Progress {
  public:
    /** @param ranges ranges in the whole run, for the number of zones. */
    explicit Progress(size_t ranges) : ranges_(ranges) {}
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /** Takes a line of the log and shows what it tells. */
    void take(const std::string& text);
    /** Ends the bar, if there is one. */
    void finish();

    size_t zones() const;
    size_t failedZones() const;
    /** Whether the service refused the request as a whole. */
    bool refused() const;
    /** Whether the service has heeded a stop, whoever asked for it. */
    bool stopped() const;

  private:
    mutable std::mutex mutex_;
    const size_t ranges_;
    size_t limit_ = 0;
    size_t zones_ = 0;
    size_t failed_ = 0;
    bool refused_ = false;
    bool stopped_ = false;
    Meter meter_{"zone"};
};

}  // namespace fboctl
