#pragma once

#include <cstdint>

namespace vendor::nivora::hardware::fbo::implementation {

/*
 * The flags and counters that the methods of one process share. They are plain variables on
 * purpose: FBO_stateCtl() writes the flags on one thread while FBO_trigger() looks at them on
 * another before each zone and each wait, so a store is seen one look later at the latest.
 */

/** Non-zero while a stop is requested. */
extern int32_t hal_status_flag;

/** Set with the first stop request of the process and never cleared again. */
extern bool is_stop;

/** Device commands that were repeated, and states that were read again, since the last report. */
extern int32_t cmd_retry_count;

/** Device commands that failed since the last report. */
extern int32_t cmd_fail_count;

}  // namespace vendor::nivora::hardware::fbo::implementation
