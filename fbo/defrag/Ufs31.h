#pragma once

#include <cstdint>
#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Runs one zone through a UFS 3.1 device, which has separate nodes for analysis and
 * defragmentation. In all else as UFS40_FBO_Imp(), but for these:
 *
 * - a list that the device does not accept is sent again, up to 10 times in 5 minutes during
 *   which a stop request is not looked at;
 * - a defragmentation that fails (state 255) starts the whole first pass again, without limit,
 *   until a stop request or another failure ends it;
 * - the result is -11 for every failure of the device, that of FBO_Clear() too.
 */
int32_t UFS31_FBO_Imp(std::string lr_list, int32_t& level_before, int32_t& level_after);

}  // namespace vendor::nivora::hardware::fbo::implementation
