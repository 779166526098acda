#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "sim/RangeSet.h"

namespace sim {

/**
 * Reads a list of decimal numbers separated by commas, two for each range. False if it is no
 * such list.
 */
bool parseRanges(std::string_view text, std::vector<Range>& ranges);

/** The flash: which blocks have been optimised or unmapped, and how fragmented ranges are. */
class Flash {
  public:
    /**
     * The fragmentation of `ranges`, 0 (none) to 10: the share of ranges that do not start where
     * the range before them ends. Such a range counts for a tenth if it has been optimised, and
     * not at all if it is unmapped.
     */
    int level(const std::vector<Range>& ranges) const;

    /** How many of `ranges` were optimised before. */
    size_t countOptimised(const std::vector<Range>& ranges) const;

    void optimise(const std::vector<Range>& ranges);

    /** Erases the ranges: they are unmapped, and no longer optimised. */
    void unmap(const std::vector<Range>& ranges);

    /** The ranges optimised so far, as a list that takeOptimised() of another flash reads. */
    std::string optimised() const { return optimised_.list(); }
    /** The ranges unmapped so far, as a list. */
    std::string unmapped() const { return unmapped_.list(); }
    bool takeOptimised(std::string_view list);

  private:
    RangeSet optimised_;
    RangeSet unmapped_;
};

}  // namespace sim
