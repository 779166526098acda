#pragma once

#include <cstdint>
#include <string>

#include "sim/Profile.h"

namespace sim {

/**
 * The 512 bytes of a device's health report in hexadecimal, with the program/erase cycles where
 * its maker keeps them. `tbw` is the count of bytes written of an SKhynix device: while it is 0
 * the device keeps its cycles in the older field.
 */
std::string healthReport(Maker maker, uint32_t cycles, uint32_t tbw);

}  // namespace sim
