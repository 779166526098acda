#include "fbo/defrag/Engine.h"

#include "fbo/Globals.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/defrag/Report.h"
#include "fbo/defrag/Result.h"
#include "fbo/utils/Log.h"

namespace vendor::nivora::hardware::fbo::implementation {

int Engine::run() {
    while (!ended_) pass();
    return result_;
}

bool Engine::endWith(int result) {
    ended_ = true;
    result_ = result;
    return false;
}

void Engine::logOpenFailure() const {
    FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] Open file failure");
}

bool Engine::openOutput(const char* node) {
    if (output_.open(path(node))) return true;
    logOpenFailure();
    return endWith(kNodeNotOpened);
}

bool Engine::sendList(const char* state_node) {
    output_.close();
    input_.close();
    FBO_LOG(ANDROID_LOG_INFO, name_, "[FBO-HAL] write buffer");
    if (!openOutput(node::kSendLrList)) return false;
    FBO_LOG(ANDROID_LOG_INFO, name_, "[FBO-HAL] write buff lba is: %s.", lr_list_.c_str());
    output_.putLine(lr_list_);
    if (input_.open(path(state_node))) return true;
    logOpenFailure();
    return endWith(kNodeNotOpened);
}

void Engine::readState() {
    input_.readToken(token_);
    state_ = std::stoi(token_);
}

bool Engine::retryAnalysis() {
    FBO_LOG(ANDROID_LOG_DEBUG, name_, "[FBO-HAL] flc ops is: %s.", token_.c_str());
    if (!retry_available_) {
        FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] flc enable abnormal, exit");
        return endWith(kDeviceAbnormal);
    }
    FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] flc enable abnormal, try");
    retry_available_ = false;
    ++cmd_fail_count;
    ++cmd_retry_count;
    return false;
}

bool Engine::readReport() {
    FBO_LOG(ANDROID_LOG_INFO, name_, "[FBO-HAL] read buff.");
    // A node that does not open shows as an empty report.
    input_.open(path(node::kFragLevel));
    report_ = input_.readAll();
    if (report_.size() >= kReportLength) return true;
    if (!retry_available_) {
        FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] read buff fail");
        return endWith(kDeviceAbnormal);
    }
    FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] read buff fail, retry");
    // Unlike the retry of an abnormal state, this one is not counted.
    retry_available_ = false;
    return false;
}

bool Engine::keepLevel() {
    if (!first_pass_) {
        level_after_ = levelOf(report_);
        return endWith(kDone);
    }
    level_before_ = levelOf(report_);
    return true;
}

void Engine::startOptimisation(const char* control_node, const char* command,
                               const char* state_node) {
    output_.close();
    input_.close();
    output_.open(path(control_node));
    output_.putLine(command);
    input_.open(path(state_node));
    readState();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
