#pragma once

#include <map>
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
 *   problem    read: why the last such text was refused
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
    // files, which are all but those in "/.sim", are traced. An open file
    // whose driver has gone is dead. write() returns how much it has taken.
    Tree& tree() { return tree_; }
    int read(const std::string& path, bool is_dead, std::string& text);
    int write(const std::string& path, bool is_dead, std::string_view text);
    ssize_t readAt(const std::string& path, bool is_dead, char* bytes, size_t count, off_t offset);
    ssize_t writeAt(const std::string& path, bool is_dead, std::string_view bytes, off_t offset);

  private:
    void addControls();
    int set(std::string_view assignment);
    /** As set(); throws std::invalid_argument with the reason if it is refused. */
    void apply(std::string_view assignment);
    /** Does what is set by "KEY.NODE=VALUE". */
    void applyToNode(std::string_view key, const std::string& node, std::string_view value);
    /** Has `assignment` applied after store `number` from now to a node, which is "NODE.NUMBER". */
    void applyAfter(const std::string& node_and_number, std::string_view assignment);
    /** The paths of what the user calls `name`; throws if there is nothing. */
    Tree::Paths find(const std::string& name) const;
    /** The same, but nothing if there are none. */
    Tree::Paths findNodes(const std::string& name) const;
    /** Applies what was to be applied after this store to `path`. */
    void countStore(const std::string& path);
    /** Adds a line to the trace, if "record" is set, and prints it, if "print" is set. */
    void trace(const std::string& line);

    const Profile& profile_;
    const bool mtk_;
    Tree tree_;
    Device device_;
    std::string problem_;
    /** The stores to a file so far, and what is to be applied after which. */
    struct Stores {
        size_t count = 0;
        std::multimap<size_t, std::string> then;
    };
    std::map<std::string, Stores> stores_;
    std::string trace_;
    bool records_ = false;
    bool prints_ = false;
};

}  // namespace sim
