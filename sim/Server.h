#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sim/Answers.h"
#include "sim/Device.h"
#include "sim/Tree.h"

namespace sim {

/**
 * Serves a simulated phone to the kernel as a file system, and the directory "/.sim" by which
 * its user speaks to the simulation:
 *
 *   set        written: "KEY=VALUE", see Simulator::set()
 *   answers    written: what the phone's files answer from then on, see Simulator::answer()
 *   clock      written: seconds to let pass
 *   note       written: a line for the trace
 *   trace      read: the trace so far; written: starts it anew
 *   optimised  read and written: the ranges that the flash has optimised
 *   unmapped   read: the ranges that the flash has unmapped
 *   struck     read: the settings that have shaped an answer since they were set, a line each
 *   gsort      read: what the gsort partition holds, see Partition::dump()
 */
class Server {
  public:
    /** @param keeps_names whether the kernel may remember what files there are. */
    Server(const Profile& profile, bool mtk, bool keeps_names);

    /** Serves the FUSE connection `fd` until the file system is gone. */
    void run(int fd);

    // The answers to the kernel, a negative errno for a failure. What the phone's own files
    // are read and written with is traced.
    Tree& tree() { return tree_; }
    bool keepsNames() const { return keeps_names_; }
    int open(const std::string& path, bool reads, bool writes);
    int read(const std::string& path, std::string& text);
    int write(const std::string& path, std::string_view text);
    ssize_t readAt(const std::string& path, char* bytes, size_t count, off_t offset);
    ssize_t writeAt(const std::string& path, std::string_view bytes, off_t offset);

  private:
    void addControls();
    std::string struck();
    int set(std::string_view assignment);
    int setFault(const std::string& name, std::string_view words);
    /** Adds a line to the trace, or prints it, or both, as it is set. */
    void trace(const std::string& line);

    const bool keeps_names_;
    Tree tree_;
    Device device_;
    /** What the phone's files answer in place of the device. */
    std::optional<Answers> answers_;
    std::string trace_;
    bool records_ = false;
    bool prints_ = false;
};

}  // namespace sim
