#include "fbo/defrag/LinearMapping.h"

#include <unistd.h>

#include "fbo/defrag/Clear.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/defrag/Result.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr char kMapLinearly[] = "4";

/** What "fbo_prog_state" tells. */
enum State { kOngoing = 1, kMapped = 5 };

constexpr int kPollLimit = 200;
constexpr unsigned kPollSeconds = 3;

/** Waits for the end of the operation and returns the state that it ended in. */
int awaitEnd(const NodeReader& input) {
    constexpr char kName[] = "FBO2_Linear_Mapping";
    std::string token;
    input.readToken(token);
    int state = std::stoi(token);
    if (state == kOngoing) FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO2-HAL]is on going.");
    for (int polls = 0; state == kOngoing && polls < kPollLimit; ++polls) {
        sleep(kPollSeconds);
        input.readToken(token);
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO2-HAL]state is: %s.", token.c_str());
        state = std::stoi(token);
    }
    return state;
}

}  // namespace

bool FBO2_Support_Linear_Mapping(std::string& start, std::string& end) {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    // Not a no: the mapping finds no directory either and ends without an error line.
    if (!directory) return true;

    std::string support;
    if (!readFileToString(*directory + node::kLinearMapState, support)) return false;
    FBO_LOGI("[FBO2-HAL]LinearMappingSupNode is %s", support.c_str());
    if (std::stoi(support) != 1) return false;
    return readFileToString(*directory + node::kLinearMappingStart, start) &&
           readFileToString(*directory + node::kLinearMappingEnd, end);
}

int FBO2_Linear_Mapping(std::string start, std::string end) {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return kDone;

    const std::string control = *directory + node::kOperationControl;
    const std::string state = *directory + node::kProgState;
    if (const int result = FBO_Clear(control, state); result != kDone) return result;

    const std::string list = start + "," + end;
    NodeWriter output;
    if (!output.open(*directory + node::kSendLrList)) {
        FBO_LOGE("[FBO2-HAL]Open fbo_send_lr_list_node Fail");
        return kNodeNotOpened;
    }
    FBO_LOGD("[FBO2-HAL]Write buff lba is: %s.", list.c_str());
    output.putLine(list);

    FBO_LOGI("[FBO2-HAL]Enable Linear Mapping");
    if (!output.open(control)) {
        FBO_LOGE("[FBO2-HAL]Open fbo_operation_control_node Fail");
        return kNodeNotOpened;
    }
    output.putLine(kMapLinearly);

    NodeReader input;
    if (!input.open(state)) {
        FBO_LOGE("[FBO2-HAL]Open fbo_prog_state_node Fail");
        return kNodeNotOpened;
    }
    if (awaitEnd(input) != kMapped) {
        FBO_LOGE("[FBO2-HAL]Check State After Linear Mapping abnormal, exit");
        return kDeviceAbnormal;
    }
    return kDone;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
