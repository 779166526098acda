#include "fbo/snapshot/SnapshotPolicy.h"

#include <string>

#include "fbo/snapshot/SnapshotNodes.h"
#include "fbo/utils/Inquiry.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Makers.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Properties.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

/**
 * Takes the word of the control property to `enable`. False if it ends the policy there: for a
 * switched-off snapshot the limits are not read.
 */
bool applyControl(const std::string& control, bool& enable) {
    constexpr char kName[] = "updateSnapshotCloudCtrlPolicy";
    FBO_LOG(ANDROID_LOG_DEBUG, kName, "[SNAPSHOT-HAL] get snapshot_control property %s",
            control.c_str());
    if (contains(control, "false")) {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[SNAPSHOT-HAL] all pn disable snapshot");
        enable = false;
        return false;
    }
    if (contains(control, "true")) {
        enable = true;
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[SNAPSHOT-HAL] cloud enable snapshot");
        return true;
    }
    standard_inquiry info;
    if (getUfsInfo(info) != 0) {
        FBO_LOG(ANDROID_LOG_ERROR, kName, "[SNAPSHOT-HAL] getUfsInfo fail.");
        enable = false;
        return false;
    }
    if (contains(control, info.product_id)) {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[SNAPSHOT-HAL] pn match, disable snapshot");
        enable = false;
        return false;
    }
    return true;
}

}  // namespace

void updateSnapshotCloudCtrlPolicy(bool& enable, int& minLimit, int& maxLimit,
                                   int& deviceFreeBlock) {
    const std::string control = kSnapshotControlProperty.value();
    if (!contains(control, "default") && !applyControl(control, enable)) return;

    maxLimit = std::stoi(kMaxLimitProperty.value());
    minLimit = std::stoi(kMinLimitProperty.value());
    deviceFreeBlock = std::stoi(kDeviceFreeBlockProperty.value());
    FBO_LOGD("[SNAPSHOT-HAL] snapshot_freespace minlimit %d, maxlimit %d, devicefreeblock %d",
             minLimit, maxLimit, deviceFreeBlock);
}

void setSnapshotFreeBlockThr(std::string& vendor, int blocks) {
    if (getUFSVendor(vendor) < 0) {
        FBO_LOGE("[SNAPSHOT-HAL] get ufs vendor fail");
        return;
    }
    if (!hasSlowSnapshot(vendor)) return;
    const auto directory = getFeatureDevicePath(kSnapshotDirectory);
    if (!directory) return;

    FBO_LOGI("[SNAPSHOT-HAL] m/k set snapshot free block thr");
    const std::string path = *directory + node::kDropFreeSize;
    NodeReader current;
    if (!current.open(path)) {
        FBO_LOGE("[SNAPSHOT-HAL] Open dropfreesize file failure");
        return;
    }
    std::string token;
    current.readToken(token);
    current.close();
    if (std::stoi(token) == blocks) return;

    NodeWriter threshold;
    if (!threshold.open(path)) {
        FBO_LOGE("[SNAPSHOT-HAL] Open dropfreesize file failure");
        return;
    }
    threshold.putLine(std::to_string(blocks));
}

}  // namespace vendor::nivora::hardware::fbo::implementation
