#include "sim/Flash.h"

#include <algorithm>
#include <utility>

#include <android-base/parseint.h>
#include <android-base/strings.h>

namespace sim {

namespace {

constexpr size_t kMaxLevel = 10;
/** The weight of a range that does not start where the one before ends, and its optimised one. */
constexpr size_t kSeam = 10;
constexpr size_t kOptimisedSeam = 1;

}  // namespace

bool parseRanges(std::string_view text, std::vector<Range>& ranges) {
    using android::base::ParseUint;
    const std::vector<std::string> numbers = android::base::Split(std::string(text), ",");
    if (numbers.size() % 2 != 0) return false;
    std::vector<Range> parsed(numbers.size() / 2);
    for (size_t i = 0; i < parsed.size(); ++i) {
        if (!ParseUint(numbers[2 * i], &parsed[i].start)) return false;
        const uint64_t room = UINT64_MAX - parsed[i].start;
        if (!ParseUint(numbers[2 * i + 1], &parsed[i].count, room)) return false;
    }
    ranges = std::move(parsed);
    return true;
}

int Flash::level(const std::vector<Range>& ranges) const {
    if (ranges.size() < 2) return 0;
    size_t scatter = 0;
    for (size_t i = 1; i < ranges.size(); ++i) {
        if (ranges[i].start == ranges[i - 1].start + ranges[i - 1].count) continue;
        if (unmapped_.covers(ranges[i])) continue;
        scatter += optimised_.covers(ranges[i]) ? kOptimisedSeam : kSeam;
    }
    const size_t most = (ranges.size() - 1) * kSeam;
    return static_cast<int>((scatter * kMaxLevel + most / 2) / most);
}

size_t Flash::countOptimised(const std::vector<Range>& ranges) const {
    return std::count_if(ranges.begin(), ranges.end(),
                         [this](const Range& range) { return optimised_.covers(range); });
}

void Flash::optimise(const std::vector<Range>& ranges) {
    for (const Range& range : ranges) {
        optimised_.add(range);
        unmapped_.remove(range);
    }
}

void Flash::unmap(const std::vector<Range>& ranges) {
    for (const Range& range : ranges) {
        optimised_.remove(range);
        unmapped_.add(range);
    }
}

bool Flash::takeOptimised(std::string_view list) {
    std::vector<Range> ranges;
    if (!list.empty() && !parseRanges(list, ranges)) return false;
    optimise(ranges);
    return true;
}

}  // namespace sim
