#pragma once

/*
 * A host's stand-in for the platform's header of this name. Within a process a service is either
 * there or not; nobody has to be told of its arrival.
 */

namespace android::hidl::manager::V1_0 {
struct IServiceNotification;
}  // namespace android::hidl::manager::V1_0
