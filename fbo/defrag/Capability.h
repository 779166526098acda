#pragma once

#include <cstdint>

namespace vendor::nivora::hardware::fbo::implementation {

/** Program/erase cycles from which on flash is not worth the wear of a defragmentation. */
constexpr int32_t kWornOut = 2400;

/*
 * A host controller that is not found is an answer to the first look-up of a process only: from
 * then on each of these raises std::bad_optional_access, as getFeatureDevicePath() does.
 */

/**
 * Tells from "is_ufs31" whether the device is a UFS 3.1 one: its word is the number 1. False also
 * if the node cannot be opened or no host controller is found.
 *
 * @throws std::invalid_argument, std::out_of_range if the node holds no number or too large a one.
 */
bool FBO_isUFS31();

/**
 * Reads the least size of a range from "fbo_min_lrs", in the driver's unit.
 *
 * @return the size, or -1 if the node cannot be opened.
 * @throws std::invalid_argument, std::out_of_range if the node holds no number or too large a
 *     one; std::invalid_argument also if no host controller is found.
 */
int FBO_Get_MinLBASize();

/**
 * Reads how many ranges the device takes at once from "fbo_max_lrc" into `out`.
 *
 * @return 0; -10, with `out` untouched, if the node cannot be opened. Also 0, with
 *     `out` untouched, if no host controller is found.
 * @throws std::invalid_argument, std::out_of_range if the node holds no number or too large a one.
 */
int FBO_Get_MaxLBACount(int& out);

}  // namespace vendor::nivora::hardware::fbo::implementation
