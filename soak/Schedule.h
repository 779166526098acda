#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace soak {

/** What can happen to the service in a run. */
enum class Kind {
    kMissing,
    kDenied,
    kReadError,
    kWriteError,
    kGarbage,
    kStuck,
    kWrongEnd,
    kSlow,
    kShortRead,
    kNoController,
    kStop,
    kDropEvent,
    kCompany,
    kKill,
};
constexpr size_t kKinds = 14;

const char* nameOf(Kind kind);

/** When it happens: at the start, or at a sleep or a log line of the calling thread. */
struct Moment {
    enum class Mark { kStart, kSleep, kLogLine } mark = Mark::kStart;
    /** 1 for the first sleep or line. */
    int number = 0;
};

struct Event {
    Kind kind;
    Moment moment;
    /** A fault: the device's setting, see sim::Simulator::set(). */
    std::string key;
    /**
     * The setting's value; a stop: what FBO_stateCtl() is told; a drop event: "awaited" if the
     * calling thread waits until the worker has dealt with it.
     */
    std::string value;
};

/** A call of the service, or some that belong together. */
struct Task {
    enum class Call { kTrigger, kErase, kSnapshot, kQueries } call;
    /** The request of a trigger or an erase. */
    std::string request;
};

/** Everything that is drawn for a run. The same seed and run always give the same schedule. */
struct Schedule {
    /** What the simulated device is made from, see sim::Simulator. */
    std::string device;
    std::vector<Task> tasks;
    std::vector<Event> events;
    /** The system call of the calling thread before which the service is killed; 0: never. */
    int kill_at = 0;
    /** How often a second thread asks and stops meanwhile; 0: there is none. */
    int company = 0;
    /** Seams in the zones that are defragmented when all is well again. */
    std::vector<int> seams;
    /** Whether the snapshot that is made then is dropped by an event, or else by a call. */
    bool drops_by_event = false;

    bool is31() const { return device.compare(0, 5, "ufs31") == 0; }
    bool has(Kind kind) const;
};

constexpr size_t kMaxEvents = 6;

Schedule draw(uint64_t seed, uint64_t run);

/** The schedule for a reader, several lines. */
std::string describe(const Schedule& schedule);

/** The value of the device's setting `key` while nothing is wrong. */
std::string usualValue(const std::string& key);

}  // namespace soak
