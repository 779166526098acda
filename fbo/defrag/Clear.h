#pragma once

#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Brings an FBO operation of the device back to idle: while the state in `state_path` is not 0,
 * writes 0 to `control_path`, at most eleven times with 30 seconds between.
 *
 * Blocks for up to 5 minutes. Adds to `cmd_retry_count` and `cmd_fail_count` from the third write
 * on, and once more to `cmd_fail_count` if the device cannot be brought back.
 *
 * @param control_path full path of the operation's control node.
 * @param state_path full path of the operation's progress state node.
 * @return 0 if the operation is idle, or the last state read contains the digit 0; -10 if a node
 *     cannot be opened; -11 if the operation did not return to idle.
 * @throws std::invalid_argument, std::out_of_range if the state is no number or too large a one.
 */
int FBO_Clear(std::string control_path, std::string state_path);

}  // namespace vendor::nivora::hardware::fbo::implementation
