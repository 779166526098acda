#include "fbo/Fbo.h"

#include "fbo/Globals.h"

namespace vendor::nivora::hardware::fbo::implementation {

int32_t hal_status_flag;
bool is_stop;
int32_t cmd_retry_count;
int32_t cmd_fail_count;

Fbo::Fbo() : pe_cycle(kWearUnread) {
    // Neither joined nor detached: the worker runs for as long as the process, and so does the
    // object; destroying it while the worker runs ends the process.
    worker = std::thread([this] { UEventWorker(); });
    // Not before the thread: the worker looks at it only when an event has arrived.
    last_drop_time = 0;
}

Fbo::~Fbo() = default;

Return<bool> Fbo::SnapShot_isSupport() {
    return true;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
