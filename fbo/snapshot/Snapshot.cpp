#include "fbo/snapshot/Snapshot.h"

#include <unistd.h>

#include <mutex>

#include "fbo/Fbo.h"
#include "fbo/snapshot/BootLun.h"
#include "fbo/snapshot/SnapshotNodes.h"
#include "fbo/snapshot/SnapshotPolicy.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Makers.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr int kPollLimit = 30;
constexpr unsigned kPollSeconds = 1;

/** Device blocks, 2^18, in a unit of the free block threshold. */
constexpr int kBlocksShift = 18;

/** The presets of what the policy may change. */
struct BackupPolicy {
    bool enable = true;
    int minLimit = 20;
    int maxLimit = 50;
    int deviceFreeBlock = 16;
};

/** Guards the two tables: looking up a word that a table does not know enters it. */
std::mutex tables_lock;

SNAPSHOT_STATUS statusOf(const std::string& word) {
    const std::lock_guard<std::mutex> lock(tables_lock);
    // A word that the table does not know is entered as idle.
    return snapshotStatusMap[word];
}

std::string wordOf(SNAPSHOT_CTRL command) {
    const std::lock_guard<std::mutex> lock(tables_lock);
    return snapshotCtrlMap[command];
}

/** In 32 bits, as the driver takes it: 8192 units and more wrap around. */
int toBlocks(int units) {
    return static_cast<int>(static_cast<uint32_t>(units) << kBlocksShift);
}

}  // namespace

Return<bool> Fbo::SnapShot_startBackup() {
    const auto directory = getFeatureDevicePath(kSnapshotDirectory);
    if (!directory) return false;

    BackupPolicy policy;
    updateSnapshotCloudCtrlPolicy(policy.enable, policy.minLimit, policy.maxLimit,
                                  policy.deviceFreeBlock);
    if (!policy.enable) {
        FBO_LOGD("[SNAPSHOT-HAL] snapshot is cloud disable, do not backup.");
        return false;
    }
    if (drop_caches(3) != 0) {
        FBO_LOGE("[SNAPSHOT-HAL] drop_caches fail, do not backup.");
        return false;
    }
    if (setBootlunInfo() < 0) {
        FBO_LOGE("[SNAPSHOT-HAL] setBootlunInfo fail, do not backup and drop backup.");
        SnapShot_startDrop();
        return false;
    }
    std::string vendor;
    setSnapshotFreeBlockThr(vendor, toBlocks(policy.deviceFreeBlock));

    NodeWriter ctrl;
    if (!ctrl.open(*directory + node::kSnapshotCtrl)) {
        FBO_LOGE("[SNAPSHOT-HAL] Open ctrl file failure");
        return false;
    }
    ctrl.putLine(wordOf(SNAPSHOT_CTRL_START));
    int32_t status = SnapShot_getStatus();
    FBO_LOGD("[SNAPSHOT-HAL] snapshotStatus is %d.", status);
    // Some devices stay idle for a while before they begin.
    const bool isMK = hasSlowSnapshot(vendor);
    int tryCount = 0;
    while ((status == SNAPSHOT_STATUS_INPROGRESS || (status == SNAPSHOT_STATUS_IDLE && isMK)) &&
           tryCount < kPollLimit) {
        FBO_LOGI("[SNAPSHOT-HAL] snapshotStatus is %d.", status);
        sleep(kPollSeconds);
        status = SnapShot_getStatus();
        ++tryCount;
    }
    FBO_LOGD("[SNAPSHOT-HAL] snapshotStatus is %d, tryCount is %d", status, tryCount);
    if (SnapShot_getStatus() != SNAPSHOT_STATUS_COMPLETE_BACKUP) return false;
    FBO_LOGD("[SNAPSHOT-HAL] backup success");
    return true;
}

Return<bool> Fbo::SnapShot_startDrop() {
    const auto directory = getFeatureDevicePath(kSnapshotDirectory);
    if (!directory) return false;

    int32_t status = SnapShot_getStatus();
    FBO_LOGD("[SNAPSHOT-HAL] snapshotStatus is %d.", status);
    if (status != SNAPSHOT_STATUS_COMPLETE_BACKUP) {
        FBO_LOGD("[SNAPSHOT-HAL] snapshot status is not complete_backup, do not drop");
        return true;
    }
    NodeWriter ctrl;
    if (!ctrl.open(*directory + node::kSnapshotCtrl)) {
        FBO_LOGE("[SNAPSHOT-HAL] Open ctrl file failure");
        return false;
    }
    // A snapshot is dropped by "stop"; the driver's word "drop" is never sent.
    ctrl.putLine(wordOf(SNAPSHOT_CTRL_STOP));
    std::string vendor;
    getUFSVendor(vendor);
    // Most devices drop at once; for the others the wait begins from the status known above.
    const bool isMK = hasSlowSnapshot(vendor);
    int tryCount = 0;
    while ((status == SNAPSHOT_STATUS_INPROGRESS || (status != SNAPSHOT_STATUS_IDLE && isMK)) &&
           tryCount < kPollLimit) {
        FBO_LOGI("[SNAPSHOT-HAL] snapshotStatus is %d.", status);
        sleep(kPollSeconds);
        status = SnapShot_getStatus();
        ++tryCount;
    }
    status = SnapShot_getStatus();
    if (status != SNAPSHOT_STATUS_IDLE && status != SNAPSHOT_STATUS_DROP_BY_HOST) {
        FBO_LOGE("[SNAPSHOT-HAL] snapshot drop failed.");
        return false;
    }
    FBO_LOGD("[SNAPSHOT-HAL] snapshot drop succcess.");
    return true;
}

Return<int32_t> Fbo::SnapShot_getStatus() {
    const auto directory = getFeatureDevicePath(kSnapshotDirectory);
    if (!directory) return SNAPSHOT_STATUS_IDLE;

    NodeReader node;
    if (!node.open(*directory + node::kSnapshotStatus)) {
        FBO_LOGE("[SNAPSHOT-HAL] Open status file failure");
        return SNAPSHOT_STATUS_IDLE;
    }
    std::string word;
    node.readToken(word);
    FBO_LOGI("[SNAPSHOT-HAL] status is %s", word.c_str());
    return statusOf(word);
}

}  // namespace vendor::nivora::hardware::fbo::implementation
