#include <string>

#include "fbo/Fbo.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

Return<bool> Fbo::FBO_GCADisCard() {
    const std::string path = kF2fsDirectory + get_userdata_mapper() + kUrgentGcNode;
    FBO_LOGI("[FBO-HAL] the gc path: %s", path.c_str());
    NodeWriter node;
    if (!node.open(path)) {
        FBO_LOGE("[FBO-HAL] gc node open fail");
        return false;
    }
    FBO_LOGD("[FBO-HAL] trigger GC");
    // Stored as the node is closed. What the file system makes of it is not looked at.
    node.put("1\n");
    return true;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
