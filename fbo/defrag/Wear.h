#pragma once

#include "fbo/Fbo.h"

namespace vendor::nivora::hardware::fbo::implementation {

/** Whether the wear has still to be read: callers then read it, on every call until it works. */
inline bool isWearUnread(const Fbo& service) {
    return service.pe_cycle == kWearUnread || service.level_to_num.empty();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
