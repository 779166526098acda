#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

namespace sim {

/** `count` blocks from `start` on. */
struct Range {
    uint64_t start;
    uint64_t count;
};

/** A set of blocks, kept as ranges that neither overlap nor touch. */
class RangeSet {
  public:
    void add(const Range& range);
    void remove(const Range& range);
    /** Whether all blocks of `range` are in the set. */
    bool covers(const Range& range) const;
    /** The number of ranges. */
    size_t size() const { return ends_.size(); }
    /** The ranges as a list of numbers, two for each. */
    std::string list() const;

  private:
    /** The end of each range, by its start. */
    std::map<uint64_t, uint64_t> ends_;
};

}  // namespace sim
