#pragma once

#include <string>
#include <string_view>

#include "sim/Trace.h"

namespace sim {

/**
 * A phone with a simulated UFS device, for the process that makes one: the process sees it under
 * the real absolute paths and nothing else any more, its properties are set, and its clock is
 * the virtual one of Clock.h. A process can make one only, and cannot leave it.
 *
 * It is in a network namespace of its own, too, where the kernel's uevents are its own alone.
 *
 * A process of its own serves the device, so that no way in which the first one ends can get
 * stuck in the file system. Root needs nothing but /dev/fuse for this; anybody else needs to be
 * allowed a user namespace, and has to make the simulator before any thread.
 */
class Simulator {
  public:
    /**
     * @param device a profile's name, and settings after it: "ufs40:samsung,wear=2400". Besides
     *     the keys of set() there are
     *     "platform": the maker of the host controller, qcom or mtk;
     *     "hardware": the property ro.hardware, if it is not to be the platform, and "device":
     *         the property ro.product.device; empty to leave them unset;
     *     "pace": see setPace().
     * @throws std::invalid_argument if the device is not worded well, std::system_error if the
     *     system does not allow it.
     */
    explicit Simulator(std::string_view device);
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    /**
     * Changes the device:
     *   a key of Settings::describe();
     *   "node.NAME": what the node NAME has its readers read, texts separated by "/", the last
     *     one again and again;
     *   "unscript": the node that is to answer by itself again;
     *   "fault.NAME": what is wrong with the node, see Tree::setFaults();
     *   "product", "revision": of the INQUIRY data;
     *   "gsort_size": the size of the gsort partition;
     *   "prop.NAME": the property NAME;
     *   "userdata": where the link to the userdata volume points;
     *   "record", "print": 1 to keep the traffic for trace(), or to print it on standard error.
     * Throws std::invalid_argument if the device does not take it.
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

    /** The ranges that the flash has optimised; what another device's flash can start with. */
    std::string optimised() const;
    void setOptimised(std::string_view ranges);
    /** The ranges that the flash has unmapped. */
    std::string unmapped() const;

    /** What profiles there are and what can be set, for a help text. */
    static std::string describe();
};

}  // namespace sim
