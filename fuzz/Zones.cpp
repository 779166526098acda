/*
 * Cuts a request into zones. An input is the ranges that a zone may hold, as one byte or four, and
 * the request.
 */

#include "fbo/defrag/Zones.h"

#include "fuzz/Input.h"
#include "fuzz/Pieces.h"
#include "fuzz/Require.h"
#include "fuzz/Target.h"

using namespace std::string_literals;
using vendor::nivora::hardware::fbo::implementation::ZoneCutter;

const std::vector<std::string> fuzz::kRegressions = {
        "\1" + "1,1,2,1,3,1,"s,
        // A comma in the first place, and nothing but commas.
        "\x01,1,2,",
        "\x01,,,,,,,",
        "\x02,",
        // Without a limit, and with the largest one.
        "\0,1,2,3,"s,
        "\xff\x7f\xff\xff\xff" + "1,2,3,4"s,
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::Input input(data, size);
    int max_ranges = input.byte();
    if (max_ranges == 255) max_ranges = input.number();
    const std::string request = input.rest();

    ZoneCutter cutter(request, max_ranges);
    std::vector<std::string> zones;
    while (const auto zone = cutter.next()) {
        zones.emplace_back(*zone);
        fuzz::require(zones.size() <= request.size(), "a request is cut to its end");
    }
    fuzz::requireZonesOf(request, zones, max_ranges);
    return 0;
}
