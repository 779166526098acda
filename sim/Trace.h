#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>
#include <vector>

namespace sim {

/** Something that happened on a simulated phone. */
struct Event {
    enum Kind { kRead, kWrite, kSleep, kLog, kNote };

    Kind kind = kNote;
    /** Reads and writes: the last component of the node's path. */
    std::string node = {};
    /** The text that was read, stored, logged or noted; for a device file, the size asked for. */
    std::string text = {};
    /** Reads and writes: why the node refused, in the words of strerror(3); empty if it did not. */
    std::string error = {};
    /** Device files: the offset, and the bytes that were read or written. -1 for other files. */
    off_t offset = -1;
    ssize_t moved = -1;
    unsigned seconds = 0;
    /** Log lines: D, I, E …, and the function that a line names. */
    char priority = '\0';
    std::string function = {};
};

/** Events in the order in which they happened. */
using Trace = std::vector<Event>;

/** Reads the lines that a Simulator's trace consists of. */
Trace parseTrace(std::string_view lines);

/** `text` in double quotes, on one line. */
std::string quote(std::string_view text);

}  // namespace sim
