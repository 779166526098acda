#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/** The driver's fragmentation report is at least this long, and tells the level at this place. */
constexpr size_t kReportLength = 29;
constexpr size_t kLevelIndex = 10;

/** What a zone's level counts for is reported times this. */
constexpr uint32_t kFigureScale = 256;

/**
 * The level in a report of at least kLevelIndex + 1 characters: 0 to 10, or nonsense where the
 * character is none of 0 to 9 and a.
 */
inline int32_t levelOf(const std::string& report) {
    // As the phone's own processor takes a character: unsigned.
    const auto character = static_cast<unsigned char>(report[kLevelIndex]);
    return character == 'a' ? 10 : character - '0';
}

}  // namespace vendor::nivora::hardware::fbo::implementation
