#pragma once

#include <cstddef>
#include <string>

namespace bench {

/** Ranges in a zone of the requests here: as many as the driver's list holds. */
constexpr int kRanges = 127;

/** A zone's ranges, with a comma behind every number: 1 KiB exactly. */
inline std::string zoneText() {
    // The first ranges have a digit more, to fill the KiB.
    constexpr int kLonger = 8;
    std::string text;
    for (int i = 0; i < kRanges; ++i) {
        text += std::to_string(i < kLonger ? 20000 + 50 * i : 1000 + 50 * i) + ",16,";
    }
    return text;
}

/**
 * A request of `size` bytes, a multiple of 1 KiB. It is the same zone again and again, so that the
 * device has the same to do for each.
 */
inline std::string requestText(size_t size) {
    const std::string zone = zoneText();
    std::string text;
    while (text.size() < size) text += zone;
    return text;
}

}  // namespace bench
