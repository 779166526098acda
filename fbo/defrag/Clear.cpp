#include "fbo/defrag/Clear.h"

#include <unistd.h>

#include "fbo/Globals.h"
#include "fbo/defrag/Result.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr unsigned kClearSeconds = 30;
/** How often the clear command is repeated at most. */
constexpr int kRepeatLimit = 10;

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
    control.putLine("0");
    readState(state, state_path, token);
    for (int repeats = 0; std::stoi(token) != 0 && repeats < kRepeatLimit; ++repeats) {
        sleep(kClearSeconds);
        control.putLine("0");
        readState(state, state_path, token);
        // The first repetition is not counted.
        if (repeats > 0) {
            ++cmd_retry_count;
            ++cmd_fail_count;
        }
    }

    // The digit 0 anywhere in the last state counts as cleared, that of 10 or 20 too.
    if (token.find('0') == std::string::npos) {
        ++cmd_fail_count;
        FBO_LOGE("[FBO-HAL] flc ops abnormal, exit");
        return kDeviceAbnormal;
    }
    return kDone;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
