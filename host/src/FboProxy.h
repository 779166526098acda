#pragma once

#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

namespace host {

/**
 * The service of another process, as far as that is there now; null otherwise. A call of it fails
 * with DEAD_OBJECT from the death of that process on, also where another service has taken its
 * place.
 */
android::sp<vendor::nivora::hardware::fbo::V1_0::IFbo> findRemoteService();

/** Has `notification` told of every service that registers in another process, from now on. */
void watchRemoteServices(
        const android::sp<android::hidl::manager::V1_0::IServiceNotification>& notification);

}  // namespace host
