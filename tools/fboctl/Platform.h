#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

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

/** How the user wants a simulated phone for other programs. */
struct ServeOptions {
    /** A command to run meanwhile, with its arguments; empty: until a signal comes. */
    std::vector<std::string> command;
    /** Whether to start a service again that has died. */
    bool restart = false;
    /** Whether to show the service's log. */
    bool log = false;
};

/** What differs between a host and a phone. The simulated device or logcat ends with this object.
 */
class Platform {
  public:
    virtual ~Platform() = default;

    /** Starts the service, unless it runs without this program's doing, as on a phone. */
    virtual void startService() {}

    /** Has the kernel ask the service to drop the snapshot. Throws if that cannot be. */
    virtual void sendDropEvent() = 0;
    /** Prepares for a time in which the service only waits for events from outside. */
    virtual void keepUp() {}

    /** What to tell the user where IFbo::tryGetService() finds no service. */
    virtual const char* whyNoService() const = 0;

    /** Why this program does not see the nodes that the service uses; null if it does. */
    virtual const char* whyNoNodes() const { return nullptr; }

    /** Waits until what the service has logged so far has reached the reader. */
    virtual void waitForLog() const {}
};

/**
 * Prepares the device, and hands the lines that the service logs from now on to `reader`, on any
 * thread; an empty reader gets none. To be called on the main thread.
 * Throws std::invalid_argument if the options do not fit, another std::exception if the system does
 * not allow it.
 */
std::unique_ptr<Platform> startPlatform(const SimOptions& sim, LogReader reader);

/**
 * Serves a simulated phone to other programs. To be called while the program has one thread.
 *
 * @return what to end with, which is the command's exit status if there is a command; 128 and the
 *     number of the signal if one has ended it.
 */
int servePhone(const SimOptions& sim, const ServeOptions& options);

/** Sends the drop event to the simulated device that the process `pid` keeps up. */
void sendDropEventTo(int pid);

/** Whether the state of a simulated device was to be kept, and has not been. */
bool isStateLost();

/** The simulated devices that there are, for a help text. */
std::string describeSim();

}  // namespace fboctl
