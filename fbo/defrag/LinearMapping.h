#pragma once

#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Asks whether the device wants a range mapped linearly (FBO 2.0), and which: reads
 * "fbo2_linear_map_state", "fbo2_linear_mapping_start" and "fbo2_linear_mapping_end".
 *
 * @param start, end the range as the driver words it; untouched if the answer comes before them.
 * @return true if the state is 1 and both ends could be opened; true also if no host
 *     controller is found, where FBO2_Linear_Mapping() then has nothing to do. False otherwise.
 * @throws std::invalid_argument, std::out_of_range if the state is no number or too large a one;
 *     what getFeatureDevicePath() raises.
 */
bool FBO2_Support_Linear_Mapping(std::string& start, std::string& end);

/**
 * Has the device map the range from `start` to `end` linearly: brings it back to idle, sends the
 * range and waits for the end of the operation.
 *
 * Blocks for up to 15 minutes; a stop request does not shorten that.
 *
 * @return 0 if the device is done, or no host controller is found; -10 if a node cannot be opened;
 *     -11 if the device ends in another state than done (5); or what FBO_Clear() returned.
 * @throws std::invalid_argument, std::out_of_range if a state is no number or too large a one;
 *     what getFeatureDevicePath() raises.
 */
int FBO2_Linear_Mapping(std::string start, std::string end);

}  // namespace vendor::nivora::hardware::fbo::implementation
