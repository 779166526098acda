#pragma once

#include <string>
#include <string_view>

#include "sim/Trace.h"

namespace sim {

/**
 * A phone with a simulated UFS device. The process that makes a Simulator enters the phone: its
 * root directory is the phone's, its properties are set, its clock is the virtual one of Clock.h,
 * and it is in a network namespace of its own, where only the uevents that it sends arrive. A
 * process can make one Simulator only, and cannot leave it.
 *
 * A second process serves the device, so that the first one cannot block in the file system when it
 * ends. Root needs nothing but /dev/fuse; another user needs permission to make a user namespace,
 * and has to make the Simulator before any thread is started.
 */
class Simulator {
  public:
    /**
     * @param device a profile's name, and settings after it: "ufs40:samsung,wear=2400", or
     *     "@FILE" for those of a file, one a line. Besides the keys of set() there are
     *     "platform": the maker of the host controller, qcom or mtk;
     *     "hardware": the property ro.hardware, if it is not to be the platform, and "device":
     *         the property ro.product.device; empty to leave them unset;
     *     "pace": see setPace().
     * @throws std::invalid_argument if `device` is malformed, std::system_error if the system does
     *     not allow a simulated device.
     */
    explicit Simulator(std::string_view device);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /**
     * Changes the device:
     *   a key of Settings::describe();
     *   "node.NAME": what the node NAME, which may have its directory in front, has its readers
     *     read, see Script::parse();
     *   "store.NAME": what comes of stores to the node, in the same way but without texts;
     *   "unscript": the node that is to answer by itself again;
     *   "fault.NAME": what is wrong with the node, see Tree::setFaults();
     *   "after.NAME.N": a setting, "KEY=VALUE", for the time after the N-th store to the node from
     *     now on;
     *   "product", "revision": of the INQUIRY data;
     *   "gsort_size": the size of the gsort partition;
     *   "prop.NAME": the property NAME;
     *   "userdata": where the link to the userdata volume points;
     *   "record", "print": 1 to keep the traffic for trace(), or to print it on standard error.
     * Throws std::invalid_argument, with the reason, if the device does not take it.
     */
    void set(const std::string& key, const std::string& value);

    /** The traffic so far: reads, writes, sleeps and notes, a line each. */
    std::string trace() const;
    /** The same, parsed. */
    Trace events() const { return parseTrace(trace()); }
    void clearTrace();
    /** Adds a line to the trace. */
    void note(std::string_view line);
    /** Adds a log line of a function to the trace. */
    void log(char priority, const std::string& function, std::string_view text);

    /** The ranges that the flash has optimised; setOptimised() of another device takes them. */
    std::string optimised() const;
    /** Throws std::invalid_argument if they are no ranges. */
    void setOptimised(std::string_view ranges);
    /** The ranges that the flash has unmapped. */
    std::string unmapped() const;

    /** What profiles there are and what can be set, for a help text. */
    static std::string describe();
};

}  // namespace sim
