#include "fbo/defrag/Clear.h"

#include <optional>

#include "fbo/Globals.h"
#include "fbo/defrag/Nodes.h"
#include "fbo/defrag/Result.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Poll.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr unsigned kClearSeconds = 30;
/** Repetitions of the clear command that are counted, after one that is not. */
constexpr int kCountedClears = 9;

void readState(const NodeReader& state, const std::string& state_path, std::string& token) {
    state.readToken(token);
    FBO_LOG(ANDROID_LOG_DEBUG, "FBO_Clear", "[FBO-HAL] ops %s is %s!.", state_path.c_str(),
            token.c_str());
}

}  // namespace

int FBO_Clear(std::string control_path, std::string state_path) {
    NodeWriter control;
    if (!control.open(control_path)) {
        FBO_LOGE("[FBO-HAL] %s open fail!.", control_path.c_str());
        return kNodeNotOpened;
    }
    NodeReader state;
    if (!state.open(state_path)) {
        FBO_LOGE("[FBO-HAL] %s open fail!.", state_path.c_str());
        return kNodeNotOpened;
    }
    std::string token;
    readState(state, state_path, token);
    if (std::stoi(token) == 0) {
        FBO_LOGD("[FBO-HAL] progress state is already idle.");
        return kDone;
    }

    FBO_LOGD("[FBO-HAL] clear ops");
    bool idle = false;
    const auto clear = [&](int counted) {
        control.putLine("0");
        readState(state, state_path, token);
        cmd_retry_count += counted;
        cmd_fail_count += counted;
        idle = std::stoi(token) == 0;
    };
    const auto delay = [&] { return idle ? std::nullopt : std::optional(kClearSeconds); };
    clear(0);
    poll(1, delay, [&] { clear(0); });
    poll(kCountedClears, delay, [&] { clear(1); });

    // The digit 0 anywhere in the last state counts as cleared, that of 10 or 20 too.
    if (token.find('0') == std::string::npos) {
        ++cmd_fail_count;
        FBO_LOGE("[FBO-HAL] flc ops abnormal, exit");
        return kDeviceAbnormal;
    }
    return kDone;
}

void record_cmd_fail(std::string node_name, int count) {
    if (count < 1) return;
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return;

    const std::string path = *directory + node_name;
    NodeWriter node;
    if (!node.open(path)) {
        FBO_LOGE("[FBO-HAL] %s open fail!.", path.c_str());
        return;
    }
    node.putLine(std::to_string(count));
    FBO_LOGD("fail recode success");
}

}  // namespace vendor::nivora::hardware::fbo::implementation
