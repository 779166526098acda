#include "fuzz/Pieces.h"

#include <algorithm>

#include "fuzz/Require.h"

namespace fuzz {

std::string join(const std::vector<std::string>& pieces, char separator) {
    std::string text;
    for (size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0) text += separator;
        text += pieces[i];
    }
    return text;
}

void requireZonesOf(std::string_view request, const std::vector<std::string>& zones,
                    int max_ranges) {
    const auto commas = [](std::string_view text) {
        return std::count(text.begin(), text.end(), ',');
    };
    // A comma in the first place of the request counts for nothing.
    const auto counted = [&](std::string_view text) {
        return commas(text.substr(std::min<size_t>(text.size(), 1)));
    };
    const std::string joined = join(zones, ',');
    require(request.substr(0, joined.size()) == joined, "the zones are the request's beginning");
    const std::string_view left = request.substr(joined.size());
    require(left.size() == 1 || (zones.empty() ? counted(left) == 0 : commas(left) == 1),
            "nothing is left out but the last character, or what no comma closes");
    require(max_ranges > 0 || zones.size() <= 1, "without a limit there is one zone");
    for (size_t i = 0; max_ranges > 0 && i < zones.size(); ++i) {
        const long numbers = (i == 0 ? counted(zones[i]) : commas(zones[i])) + 1;
        require(numbers <= 2L * max_ranges, "no zone has too many ranges");
        require(i + 1 == zones.size() || numbers == 2L * max_ranges,
                "all zones but the last are full");
    }
}

}  // namespace fuzz
