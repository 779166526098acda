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

/** How the flash has laid out what it stores, as far as fragmentation goes. */
class Flash {
  public:
    /**
     * The fragmentation of `ranges`, 0 (none) to 10: the share of seams among them, that is of
     * ranges that do not go on where the one before them ended. A range that was optimised
     * before counts for a tenth of a seam, one that is unmapped for none.
     */
    int level(const std::vector<Range>& ranges) const;

    /** How many of `ranges` were optimised before. */
    size_t countOptimised(const std::vector<Range>& ranges) const;

    void optimise(const std::vector<Range>& ranges);

    /** Forgets what the ranges held. */
    void unmap(const std::vector<Range>& ranges);

    /** The ranges optimised so far, as a list; what takeOptimised() of a later flash reads. */
    std::string optimised() const { return optimised_.list(); }
    /** The ranges unmapped so far, as a list. */
    std::string unmapped() const { return unmapped_.list(); }
    bool takeOptimised(std::string_view list);

  private:
    RangeSet optimised_;
    RangeSet unmapped_;
};

}  // namespace sim
