#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sim {

/** The room for part number and revision in the INQUIRY data. */
constexpr size_t kProductLength = 16;
constexpr size_t kRevisionLength = 4;

/*
 * The binary data that describes a device. The simulated device serves it; tests use it to serve
 * data of their own.
 */

/**
 * The 36 bytes of standard INQUIRY data: vendor, part number and revision are cut, or filled up
 * with blanks, to 8, 16 and 4 characters.
 */
std::string inquiryData(std::string_view vendor, std::string_view product,
                        std::string_view revision);

/**
 * The bytes of a device's health report in hexadecimal, with the program/erase cycles where
 * fbo/utils/Makers.h says that the maker keeps them: CapabilityTest holds these places against its
 * own. `tbw` is the count of bytes written, for a maker that keeps the cycles elsewhere while it
 * is 0.
 */
std::string healthReport(const std::string& vendor, uint32_t cycles, uint32_t tbw);

}  // namespace sim
