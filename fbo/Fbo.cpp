#include "fbo/Fbo.h"

#include <mutex>

#include "fbo/Globals.h"

namespace vendor::nivora::hardware::fbo::implementation {

int32_t hal_status_flag;
bool is_stop;
int32_t cmd_retry_count;
int32_t cmd_fail_count;

namespace {

/** Keeps a worker from looking at its object before that is complete. */
std::mutex construction_lock;

}  // namespace

Fbo::Fbo() : pe_cycle(kWearUnread) {
    const std::lock_guard<std::mutex> lock(construction_lock);
    // Neither joined nor detached: the worker runs for as long as the process, and so does the
    // object; destroying it while the worker runs ends the process.
    worker = std::thread([this] {
        { const std::lock_guard<std::mutex> complete(construction_lock); }
        UEventWorker();
    });
    // Not before the thread: the worker looks at it only when an event has arrived.
    last_drop_time = 0;
}

Fbo::~Fbo() = default;

Return<bool> Fbo::SnapShot_isSupport() {
    return true;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
