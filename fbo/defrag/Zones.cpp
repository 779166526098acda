#include "fbo/defrag/Zones.h"

#include <algorithm>
#include <cstdint>

namespace vendor::nivora::hardware::fbo::implementation {

std::vector<std::string> cutZones(std::string_view request, int max_ranges) {
    const int64_t limit = int64_t{2} * max_ranges;
    std::vector<std::string> zones;
    if (limit > 0) zones.reserve(std::count(request.begin(), request.end(), ',') / limit + 1);

    int64_t commas = 0;
    size_t start = 0;
    // From the second character on: a request that begins with a comma keeps it in its first zone.
    for (size_t comma = request.find(',', 1); comma != std::string_view::npos;
         comma = request.find(',', comma + 1)) {
        if (++commas != limit) continue;
        zones.emplace_back(request.substr(start, comma - start));
        start = comma + 1;
        commas = 0;
    }
    if (commas > 0) zones.emplace_back(request.substr(start, request.size() - 1 - start));
    return zones;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
