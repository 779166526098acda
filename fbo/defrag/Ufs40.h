#pragma once

#include <cstdint>
#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Runs one zone through a UFS 4.0 device: sends the list, analyses it, optimises it and analyses
 * it again, through the FBO directory's control and state nodes.
 *
 * Blocks for up to an hour and more. A stop request (`hal_status_flag`) ends it with 0 after the
 * device has been brought back to idle. Adds to `cmd_retry_count` and `cmd_fail_count`.
 *
 * @param lr_list the ranges of the zone, handed to the driver unchanged.
 * @param level_before the fragmentation level (0 to 10) of the first analysis; untouched if the
 *     call ends before.
 * @param level_after the level of the second analysis; untouched unless the cycle is complete.
 * @return 0 if the cycle is complete or ended softly: by a stop, a failed optimisation or a
 *     host controller that is not found; -10 if a node cannot be opened; -11 if the device stays in
 * an abnormal state or its report too short; or what FBO_Clear() returned.
 * @throws std::invalid_argument, std::out_of_range if a state is no number or too large a one;
 *     what getFeatureDevicePath() raises.
 */
int32_t UFS40_FBO_Imp(std::string lr_list, int32_t& level_before, int32_t& level_after);

}  // namespace vendor::nivora::hardware::fbo::implementation
