#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

namespace fboctl {

/** Takes a line of the service's log: its priority as logcat's letter, and its text. */
using LogReader = std::function<void(char priority, const std::string& text)>;

/** How the user wants the simulated device; a phone has none. */
struct SimOptions {
    /** A device as sim::Simulator takes it; empty for none. */
    std::string device;
    /** A file that keeps what the flash has optimised from one run to the next; may be empty. */
    std::string state_file;
    /** Whether to print the node traffic. */
    bool trace = false;
};

/** What a host does in its own way and a phone in another; it ends with this object. */
class Platform {
  public:
    virtual ~Platform() = default;

    /** Has the kernel ask the service to drop the snapshot. Throws if that cannot be. */
    virtual void sendDropEvent() {
        throw std::invalid_argument("the drop event needs --sim, or a PID to send it to");
    }
    /** Readies for a time in which the service is left to what comes from outside. */
    virtual void keepUp() {}

    /** What to tell the user where IFbo::tryGetService() finds no service. */
    virtual const char* whyNoService() const { return "there is no service; on a host use --sim"; }

    /** Waits until what the service has logged so far has reached the reader. */
    virtual void waitForLog() const {}
};

/**
 * Makes ready what IFbo::tryGetService() finds, and hands the lines that the service logs from now
 * on to `reader`, on any thread; an empty reader wants none. To be called on the main thread.
 * Throws std::invalid_argument if the options do not fit, another std::exception if the system does
 * not allow it.
 */
std::unique_ptr<Platform> startPlatform(const SimOptions& sim, LogReader reader);

/** Sends the drop event to the simulated device that the process `pid` keeps up. */
void sendDropEventTo(int pid);

/** The simulated devices that there are, for a help text. */
std::string describeSim();

}  // namespace fboctl
