#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace sim {

/** `count` blocks from `start` on. */
struct Range {
    uint64_t start;
    uint64_t count;
};

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
    std::string optimised() const { return list(optimised_); }
    /** The ranges unmapped so far, as a list. */
    std::string unmapped() const { return list(unmapped_); }
    bool takeOptimised(std::string_view list);

  private:
    using Ranges = std::set<std::pair<uint64_t, uint64_t>>;

    static bool contains(const Ranges& ranges, const Range& range);
    static std::string list(const Ranges& ranges);

    Ranges optimised_;
    Ranges unmapped_;
};

}  // namespace sim
