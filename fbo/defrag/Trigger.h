#pragma once

#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Hands a counter of a run to the driver: writes `count` to the node `node_name` of the FBO
 * directory. A count below 1 is not written. Raises what getFeatureDevicePath() raises.
 */
void record_cmd_fail(std::string node_name, int count);

}  // namespace vendor::nivora::hardware::fbo::implementation
