#pragma once

namespace vendor::nivora::hardware::fbo::implementation {

/** What an FBO operation returns: done, or ended in a way that is no failure. */
constexpr int kDone = 0;
/** A node could not be opened. */
constexpr int kNodeNotOpened = -10;
/** The device stayed in an abnormal state. */
constexpr int kDeviceAbnormal = -11;

}  // namespace vendor::nivora::hardware::fbo::implementation
