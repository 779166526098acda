#pragma once

#include <string>
#include <string_view>

#include "sim/Device.h"
#include "sim/Tree.h"

namespace sim {

/**
 * Serves a simulated phone to the kernel as a FUSE file system. In its directory "/.sim" are the
 * files by which a Simulator controls the simulation:
 *
 *   set        written: "KEY=VALUE", see Simulator::set()
 *   clock      written: seconds to let pass
 *   note       written: a line for the trace
 *   trace      read: the trace so far; written: clears it
 *   optimised  read and written: the ranges that the flash has optimised
 *   unmapped   read: the ranges that the flash has unmapped
 */
class Server {
  public:
    Server(const Profile& profile, bool mtk);

    /** Serves the FUSE connection `fd` until the file system is gone. */
    void run(int fd);

    // The answers to the kernel; a negative errno is a failure. Reads and writes of the phone's own
    // files, which are all but those in "/.sim", are traced.
    Tree& tree() { return tree_; }
    int read(const std::string& path, std::string& text);
    int write(const std::string& path, std::string_view text);
    ssize_t readAt(const std::string& path, char* bytes, size_t count, off_t offset);
    ssize_t writeAt(const std::string& path, std::string_view bytes, off_t offset);

  private:
    void addControls();
    int set(std::string_view assignment);
    /** Adds a line to the trace, if "record" is set, and prints it, if "print" is set. */
    void trace(const std::string& line);

    Tree tree_;
    Device device_;
    std::string trace_;
    bool records_ = false;
    bool prints_ = false;
};

}  // namespace sim
