#include "fbo/defrag/Capability.h"

#include <fcntl.h>

#include <string>

#include "fbo/Fbo.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/defrag/Result.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Utils.h"
#include "fbo/utils/Wear.h"

namespace vendor::nivora::hardware::fbo::implementation {

Return<bool> Fbo::FBO_isSupport() {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return false;

    unique_fd node = openFile(*directory + node::kSupport, O_RDONLY | O_NONBLOCK);
    if (!node.ok()) {
        FBO_LOGE("[FBO-HAL] Failed to open fbo_support node.");
        return false;
    }
    char support = '0';
    if (readFile(node.get(), &support, 1) < 0 || support != '1') {
        FBO_LOGE("[FBO-HAL] Read fbo_support node failed or device does not fbo.");
        return false;
    }
    node.reset();

    if (!readWear(*this)) FBO_LOGE("[FBO-HAL] get ufs pecycle info fail");
    // Signed, so that unknown wear (-2) does not refuse: only a reading above the limit does.
    if (wearOf(*this) >= kWornOut) return false;
    FBO_LOGD("[FBO-HAL] FBO support.");
    return true;
}

bool FBO_isUFS31() {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return false;

    NodeReader node;
    if (!node.open(*directory + node::kIsUfs31)) {
        FBO_LOGE("[FBO-HAL] open is_ufs31 node fail");
        return false;
    }
    std::string token;
    node.readToken(token);
    if (std::stoi(token) != 1) return false;
    FBO_LOGD("[FBO-HAL] the ufs is 3.1 version");
    return true;
}

int FBO_Get_MinLBASize() {
    std::string token;
    if (const auto directory = getFeatureDevicePath(kFboDirectory)) {
        NodeReader node;
        if (!node.open(*directory + node::kMinLbaSize)) {
            FBO_LOGE("[FBO-HAL] Open fbo_min_lrs file failure");
            return -1;
        }
        node.readToken(token);
    }
    // Without a directory the token is empty and this raises, where FBO_Get_MaxLBACount()
    // answers: both are kept.
    return std::stoi(token);
}

int FBO_Get_MaxLBACount(int& out) {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return kDone;

    NodeReader node;
    if (!node.open(*directory + node::kMaxLbaCount)) {
        FBO_LOGE("[FBO-HAL] Open fbo_max_lrc file failure");
        return kNodeNotOpened;
    }
    std::string token;
    node.readToken(token);
    out = std::stoi(token);
    return kDone;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
