#include "sim/Names.h"

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

#include <android-base/strings.h>

namespace sim {

namespace {

/** How many letters have to be put in, left out or replaced to get from one word to the other. */
size_t distance(std::string_view from, std::string_view to) {
    std::vector<size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < from.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < to.size(); ++j) {
            const size_t replaced = diagonal + (from[i] == to[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string didYouMean(std::string_view name, const std::set<std::string>& known) {
    // Further away a name is no slip of the finger.
    size_t nearest = std::max<size_t>(2, name.size() / 3);
    std::vector<std::string> names;
    for (const std::string& other : known) {
        const size_t away = distance(name, other);
        // With no letter in common it is another name.
        if (away > nearest || other.size() < 2 || away >= std::min(name.size(), other.size())) {
            continue;
        }
        if (away < nearest) names.clear();
        nearest = away;
        names.push_back(other);
    }
    return names.empty() ? "" : "; did you mean " + android::base::Join(names, " or ") + "?";
}

}  // namespace sim
