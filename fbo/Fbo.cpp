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

// Features to come answer no, none or nothing.

Return<bool> Fbo::FBO_GCADisCard() {
    return false;
}

Return<bool> Fbo::FBO_VersionCtrl(const hidl_string&) {
    return false;
}

Return<void> Fbo::EUA_GetFreeSpaceAPECycle(EUA_GetFreeSpaceAPECycle_cb _hidl_cb) {
    _hidl_cb("");
    return Void();
}

Return<bool> Fbo::EUA_SendEraseCmd(const hidl_string&) {
    return false;
}

Return<bool> Fbo::EUA_isSupport() {
    return false;
}

Return<int32_t> Fbo::EUA_SupportSize() {
    return 0;
}

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
