#include "fbo/Fbo.h"

#include "fbo/Globals.h"

namespace vendor::nivora::hardware::fbo::implementation {

int32_t hal_status_flag;
bool is_stop;
int32_t cmd_retry_count;
int32_t cmd_fail_count;

Fbo::Fbo() : pe_cycle(kWearUnread) {}

Fbo::~Fbo() = default;

Return<bool> Fbo::SnapShot_isSupport() {
    return true;
}

// The snapshots to come answer no.

Return<bool> Fbo::SnapShot_startBackup() {
    return false;
}

Return<bool> Fbo::SnapShot_startDrop() {
    return false;
}

Return<int32_t> Fbo::SnapShot_getStatus() {
    return 0;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
