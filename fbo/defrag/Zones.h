#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace vendor::nivora::hardware::fbo::implementation {

/** The most ranges that the driver's list holds, whatever limit the device reports. */
constexpr int kMaxRanges = 127;

/**
 * Cuts a request into zones, one after the other: as many ranges as the device takes at once, that
 * is twice as many numbers, with the commas between them and none at the end. Only commas are
 * counted; what stands between them is not looked at. Zones are parts of the request, not copies:
 * a request can be a mebibyte long.
 */
class ZoneCutter {
  public:
    /** @param max_ranges ranges in a zone; below 1 the whole request is one zone. */
    ZoneCutter(std::string_view request, int max_ranges)
        : request_(request), limit_(int64_t{2} * max_ranges) {}

    /** The next zone, or nothing if there is none left. */
    std::optional<std::string_view> next();

  private:
    const std::string_view request_;
    const int64_t limit_;
    size_t start_ = 0;
    /** From the second character on: a comma in the first place is not seen. */
    size_t search_ = 1;
};

}  // namespace vendor::nivora::hardware::fbo::implementation
