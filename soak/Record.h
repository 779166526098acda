#pragma once

#include <atomic>
#include <cstdint>

#include "soak/Schedule.h"

namespace soak {

/**
 * What is known of a run, in memory that its processes share: it is still there when one of them
 * was killed.
 */
struct Record {
    uint64_t run;

    /** What the service is at. */
    enum class Phase { kStart, kWorkload, kHealing } phase;
    /** The simulation is at work in the service's process, not the service itself. */
    bool simulating;

    /** By the schedule's events: whether it happened, and whether the service came across it. */
    bool fired[kMaxEvents];
    bool struck[kMaxEvents];
    /** Drop events that were sent, and that the worker has dealt with. */
    int drops_sent;
    std::atomic<int> drops_done;

    /** Calls that ended with an error of the library. */
    std::atomic<int> escapes;
    /** The program/erase cycles were read from a report that was wrong, and are kept. */
    bool wear_is_wrong;
    int32_t wear;
    std::atomic<bool> stopped;
    bool killed;
    /** A kill was due and not tried, as nobody can be watched here. */
    bool kill_skipped;
    /** The service was started anew. */
    bool fresh;

    /** Why the soak cannot go on at all; empty: it can. */
    char trouble[300];
    /** What was not as it has to be; empty: everything was. */
    char violation[700];
};

}  // namespace soak
