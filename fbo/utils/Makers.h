#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/** The fragmentation levels that a device reports: 0 to 10. */
constexpr int kLevels = 11;

/** The bytes of a device's health report. */
constexpr size_t kHealthReportBytes = 512;

/** Where a number stands in the health report; `width` 0: nowhere. */
struct ReportField {
    size_t at;
    size_t width;
    bool big_endian;
};

/** What is known of a maker's flash. */
struct Maker {
    /** Occurs in the vendor text of the device. */
    const char* name;
    /** What each fragmentation level counts for. */
    std::array<int32_t, kLevels> numbers;
    /** Program/erase cycles. */
    ReportField cycles;
    /** Where the cycles stand instead while the device has not counted any bytes written. */
    ReportField cycles_without_tbw;
    /** Whether the device takes its time over a snapshot, and keeps a threshold of free blocks. */
    bool slow_snapshot;
};

/** The makers, in the order in which their names are looked for. Repeated numbers are their own. */
constexpr Maker kMakers[] = {
        {"MICRON", {0, 1, 2, 4, 6, 9, 12, 15, 20, 26, 38}, {24, 4, true}, {}, true},
        {"WDC", {0, 1, 3, 11, 11, 27, 30, 64, 106, 221, 223}, {8, 4, false}, {}, false},
        {"KIOXIA", {0, 0, 9, 14, 29, 62, 105, 183, 429, 486, 512}, {24, 4, true}, {}, true},
        {"SKhynix",
         {0, 2, 27, 60, 92, 124, 165, 165, 282, 282, 440},
         {8, 2, false},
         {13, 2, true},
         false},
        {"SAMSUNG", {0, 19, 50, 71, 106, 143, 192, 192, 486, 486, 486}, {156, 4, true}, {}, false},
};

/** The bytes written so far (TBW), of makers for whose cycles they matter. */
constexpr ReportField kTbwField = {144, 4, false};

/** The first maker whose name occurs in the device's vendor text, or null. */
inline const Maker* findMaker(const std::string& vendor) {
    for (const Maker& maker : kMakers) {
        if (vendor.find(maker.name) != std::string::npos) return &maker;
    }
    return nullptr;
}

/** Whether the device is one of those that take their time over a snapshot. */
inline bool hasSlowSnapshot(const std::string& vendor) {
    for (const Maker& maker : kMakers) {
        if (maker.slow_snapshot && vendor.find(maker.name) != std::string::npos) return true;
    }
    return false;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
