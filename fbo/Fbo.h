#pragma once

#include <cstdint>
#include <thread>
#include <unordered_map>

#include <hidl/Status.h>
#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

namespace vendor::nivora::hardware::fbo::implementation {

using ::android::hardware::hidl_string;
using ::android::hardware::Return;
using ::android::hardware::Void;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

/** The wear of a device whose health report has not been read yet. */
constexpr int32_t kWearUnread = -2;

/**
 * The service object: IFbo.hal says what each method does for a client. The methods are defined
 * in the folder of their feature (defrag/, eua/, snapshot/) and run on the thread of the caller.
 *
 * One object serves a process and lives until the process ends, and so does its one thread, which
 * listens for the driver's wish to drop the snapshot.
 *
 * Calls may coincide, the first ones too: what they share in memory is guarded by locks that are
 * never held over a wait. The exported flags and counters (Globals.h) are plain variables. What
 * calls do to the device is not serialised: two triggers at once disturb each other's runs.
 */
class Fbo : public IFbo {
  public:
    Fbo();
    ~Fbo() override;

    // The order is the order of the slots that clients are built against.
    Return<bool> FBO_isSupport() override;
    Return<void> FBO_trigger(const hidl_string& command, FBO_trigger_cb _hidl_cb) override;
    Return<void> FBO_stateCtl(const hidl_string& command, FBO_stateCtl_cb _hidl_cb) override;
    Return<bool> FBO_GCADisCard() override;
    Return<bool> FBO_VersionCtrl(const hidl_string& version) override;
    Return<void> EUA_GetFreeSpaceAPECycle(EUA_GetFreeSpaceAPECycle_cb _hidl_cb) override;
    Return<bool> EUA_SendEraseCmd(const hidl_string& command) override;
    Return<bool> EUA_isSupport() override;
    Return<int32_t> EUA_SupportSize() override;
    Return<bool> SnapShot_isSupport() override;
    Return<bool> SnapShot_startBackup() override;
    Return<bool> SnapShot_startDrop() override;
    Return<int32_t> SnapShot_getStatus() override;

    /**
     * Reads the device's wear and picks its level table: fills `pe_cycle` and `level_to_num` from
     * the health report and the vendor node. A vendor without a table is logged and leaves both
     * members as they were, which is no failure.
     *
     * @return bytes read from the health report, or -1 if the vendor or the report is unreadable.
     */
    int getUFSPEcycleALevelToNum();

    /**
     * Listens to kernel uevents and has UEventEvent() handle them. Returns only if the socket or
     * the wait fails, which is logged; the service then goes on without drop events.
     */
    void UEventWorker();

    /**
     * Receives one uevent and, for each drop request in it, calls SnapShot_startDrop() of this
     * object, unless it dropped a snapshot less than 4 seconds ago.
     */
    void UEventEvent();

    /** Program/erase cycles of the flash; -2 until the health report has been read. */
    int32_t pe_cycle;

    /**
     * What a fragmentation level (0 to 10) counts for on flash of this maker; empty until the
     * health report has been read.
     */
    std::unordered_map<int32_t, int32_t> level_to_num;

    /** Runs UEventWorker(). */
    std::thread worker;

    /** The kernel uevent socket; set by the worker when it opens it. */
    int32_t uevent_fd;

    /** When the worker last dropped a snapshot, in seconds as time() tells; 0: never. */
    int64_t last_drop_time;
};

}  // namespace vendor::nivora::hardware::fbo::implementation
