#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Progress.h"
#include "Session.h"

namespace fboctl {

/** The result of a defragmentation. */
struct RunResult {
    /** Sums over all calls, in the service's unit; higher is more fragmented. */
    int64_t before = 0;
    int64_t after = 0;
    size_t zones = 0;
    size_t failed_zones = 0;
    /** Zones that did not fail and have no figure "after" all the same; the sum has 0 for it. */
    size_t unmeasured_zones = 0;
    /** The sums over the zones that have both figures, as far as they can be known. */
    std::optional<Figures> measured;
    /** Somebody had the service stop, or parts of the request were kept back. */
    bool stopped = false;
    /** The service did not take the request. */
    bool refused = false;
    /** No zone was seen in the log, so nobody knows whether one failed. */
    bool unseen = false;
    bool mapping_failed = false;

    bool ok() const {
        return failed_zones == 0 && unmeasured_zones == 0 && !stopped && !refused && !unseen &&
               !mapping_failed;
    }
};

/**
 * Hands `request` to FBO_trigger(), in as many calls as it takes, while `progress` is told what
 * the service logs. Ctrl-C (SIGINT, which all threads must have blocked) asks the service to stop
 * the first time and ends the program the second time. A stop that cannot be delivered is told on
 * standard error; the call that runs is waited for all the same, and no further one is made.
 *
 * Throws UsageError, before any call, if a range is too long to be sent; CallError if a call
 * fails.
 */
RunResult runTrigger(const Session& session, const std::string& request, Progress& progress);

}  // namespace fboctl
