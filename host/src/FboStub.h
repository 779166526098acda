#pragma once

#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

namespace host {

/** Whether offerServiceAt() was called: the service is for other processes. */
bool isOfferedToOthers();

/** Lets other processes call `service`, from now on and for good. */
android::status_t offer(const android::sp<vendor::nivora::hardware::fbo::V1_0::IFbo>& service);

}  // namespace host
