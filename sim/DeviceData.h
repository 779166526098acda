#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "sim/Profile.h"

namespace sim {

/*
 * What a device tells of itself, byte by byte: as the simulated device serves it, and for tests
 * that serve something of their own.
 */

/**
 * The 36 bytes of standard INQUIRY data: vendor, part number and revision are cut, or filled up
 * with blanks, to 8, 16 and 4 characters.
 */
std::string inquiryData(std::string_view vendor, std::string_view product,
                        std::string_view revision);

/**
 * The 512 bytes of a device's health report in hexadecimal, with the program/erase cycles where
 * its maker keeps them. `tbw` is the count of bytes written of an SKhynix device: while it is 0
 * the device keeps its cycles in the older field.
 */
std::string healthReport(Maker maker, uint32_t cycles, uint32_t tbw);

/** Where the gsort partition holds the boot-LUN record, and where its numbers are in the record. */
constexpr off_t kRecordOffset = 9 * 1024 * 1024;
constexpr size_t kRecordLength = 107;
constexpr off_t kBootLunOffset = 35;
constexpr off_t kSnapshotBootLunOffset = 39;

/** A boot-LUN record that begins with `magic`. */
std::string bootLunRecord(std::string_view magic, int32_t bootlun, int32_t snapbootlun);

}  // namespace sim
