#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "fbo/Fbo.h"
#include "fbo/eua/EuaNodes.h"
#include "fbo/eua/Policy.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Utils.h"
#include "fbo/utils/Wear.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

/** The device is given this long for each request before it gets the next. */
constexpr unsigned kEraseSeconds = 5;

}  // namespace

Return<bool> Fbo::EUA_isSupport() {
    const auto directory = getFeatureDevicePath(kEuaDirectory);
    if (!directory) return false;

    NodeReader node;
    if (!node.open(*directory + node::kEuaSupport)) {
        FBO_LOGE("[EUA-HAL] Open eua_support file failure");
        return false;
    }
    std::string support;
    node.readToken(support);
    FBO_LOGI("[EUA-HAL] eua_support is %s", support.c_str());
    if (std::stoi(support) != 1) return false;
    if (checkDisableEuaPolicy()) {
        FBO_LOGD("[EUA-HAL] disable eua policy match, set eua support to false.");
        return false;
    }
    return true;
}

Return<int32_t> Fbo::EUA_SupportSize() {
    int32_t size = 0;
    if (const auto directory = getFeatureDevicePath(kEuaDirectory)) {
        NodeReader node;
        if (!node.open(*directory + node::kEuaSupportSize)) {
            FBO_LOGE("[EUA-HAL] Open eua_support_size file failure");
            return 0;
        }
        std::string text;
        node.readToken(text);
        FBO_LOGI("[EUA-HAL] eua_support_size is %s", text.c_str());
        size = std::stoi(text);
    }
    // Asked even without a directory, unlike in EUA_isSupport(), and then raises: both are kept.
    if (checkDisableEuaPolicy()) {
        FBO_LOGD("[EUA-HAL] disable eua policy match, set support size to 0.");
        size = 0;
    }
    return size;
}

Return<bool> Fbo::EUA_SendEraseCmd(const hidl_string& command) {
    const auto directory = getFeatureDevicePath(kEuaDirectory);
    if (!directory) return false;

    NodeWriter node;
    if (!node.open(*directory + node::kEuaUnmap)) {
        FBO_LOGE("[EUA-HAL] open eua_file_lba_unmap fail");
        return false;
    }
    FBO_LOGD("[EUA-HAL] send erase lbaList %s ", command.c_str());
    const std::string_view list(command.c_str(), command.size());
    // A colon ends an item, so one at the very end begins no further item.
    for (size_t start = 0, end; start < list.size(); start = end + 1) {
        end = std::min(list.find(':', start), list.size());
        const std::string item(list.substr(start, end - start));
        FBO_LOGD("[EUA-HAL] send erase lba %s ", item.c_str());
        node.putLine(item);
        sleep(kEraseSeconds);
    }
    return true;
}

Return<void> Fbo::EUA_GetFreeSpaceAPECycle(EUA_GetFreeSpaceAPECycle_cb _hidl_cb) {
    std::string report;
    if (getFeatureDevicePath(kEuaDirectory)) {
        const bool support = EUA_isSupport();
        FBO_LOGD("[EUA-HAL] eua_support is %d ", support);
        if (readWear(*this)) {
            report = std::to_string(wearOf(*this)) + ":" + (support ? "1" : "0");
        } else {
            // The prefix is that of FBO, whose figure is missing.
            FBO_LOGE("[FBO-HAL] get ufs pecycle info fail");
        }
    }
    FBO_LOGD("[EUA-HAL] GetFreeSpaceAPECycle is %s ", report.c_str());
    _hidl_cb(report);
    return Void();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
