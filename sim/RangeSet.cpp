#include "sim/RangeSet.h"

#include <algorithm>
#include <iterator>

namespace sim {

void RangeSet::add(const Range& range) {
    if (range.count == 0) return;
    uint64_t start = range.start;
    uint64_t end = range.start + range.count;
    // Takes in what it overlaps or touches.
    auto other = ends_.upper_bound(end);
    while (other != ends_.begin() && std::prev(other)->second >= start) {
        other = std::prev(other);
        start = std::min(start, other->first);
        end = std::max(end, other->second);
        other = ends_.erase(other);
    }
    ends_[start] = end;
}

void RangeSet::remove(const Range& range) {
    const uint64_t start = range.start;
    const uint64_t end = range.start + range.count;
    auto other = ends_.lower_bound(end);
    while (other != ends_.begin() && std::prev(other)->second > start) {
        other = std::prev(other);
        const auto [other_start, other_end] = *other;
        other = ends_.erase(other);
        if (other_end > end) other = ends_.emplace(end, other_end).first;
        if (other_start < start) other = ends_.emplace(other_start, start).first;
        if (other_start <= start) break;
    }
}

bool RangeSet::covers(const Range& range) const {
    const auto next = ends_.upper_bound(range.start);
    return next != ends_.begin() && std::prev(next)->second >= range.start + range.count;
}

std::string RangeSet::list() const {
    std::string list;
    for (const auto& [start, end] : ends_) {
        if (!list.empty()) list += ',';
        list += std::to_string(start) + "," + std::to_string(end - start);
    }
    return list;
}

}  // namespace sim
