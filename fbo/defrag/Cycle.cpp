#include "fbo/defrag/Cycle.h"

#include "fbo/utils/Log.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

/** The driver's report is at least this long, and tells the level at this place. */
constexpr size_t kReportLength = 29;
constexpr size_t kLevelIndex = 10;

}  // namespace

int Cycle::run() {
    Outcome outcome;
    do {
        outcome = pass();
    } while (outcome.next == Outcome::kNewPass);
    return outcome.result;
}

void Cycle::logOpenFailure() const {
    FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] Open file failure");
}

Cycle::Outcome Cycle::sendList(const char* state_node) {
    output_.close();
    input_.close();
    FBO_LOG(ANDROID_LOG_INFO, name_, "[FBO-HAL] write buffer");
    if (!open(output_, node::kSendLrList)) return endWith(kNodeNotOpened);
    FBO_LOG(ANDROID_LOG_INFO, name_, "[FBO-HAL] write buff lba is: %s.", lr_list_.c_str());
    output_.putLine(lr_list_);
    if (!open(input_, state_node)) return endWith(kNodeNotOpened);
    return nextStep();
}

void Cycle::readState() {
    input_.readToken(token_);
    convertState();
}

Cycle::Outcome Cycle::retryAnalysis() {
    FBO_LOG(ANDROID_LOG_DEBUG, name_, "[FBO-HAL] flc ops is: %s.", token_.c_str());
    if (!retry_available_) {
        FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] flc enable abnormal, exit");
        return endWith(kDeviceAbnormal);
    }
    FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] flc enable abnormal, try");
    retry_available_ = false;
    ++cmd_fail_count;
    ++cmd_retry_count;
    return newPass();
}

Cycle::Outcome Cycle::readReport() {
    FBO_LOG(ANDROID_LOG_INFO, name_, "[FBO-HAL] read buff.");
    // A node that does not open shows as an empty report.
    input_.open(path(node::kFragLevel));
    report_ = input_.readAll();
    if (report_.size() >= kReportLength) return nextStep();
    if (!retry_available_) {
        FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] read buff fail");
        return endWith(kDeviceAbnormal);
    }
    FBO_LOG(ANDROID_LOG_ERROR, name_, "[FBO-HAL] read buff fail, retry");
    // Unlike the retry of an abnormal state, this one is not counted.
    retry_available_ = false;
    return newPass();
}

Cycle::Outcome Cycle::keepLevel() {
    if (first_pass_) {
        level_before_ = level();
        return nextStep();
    }
    level_after_ = level();
    return endWith(kDone);
}

int32_t Cycle::level() const {
    // As the phone's own processor takes a character: unsigned.
    const auto character = static_cast<unsigned char>(report_[kLevelIndex]);
    return character == 'a' ? 10 : character - '0';
}

void Cycle::startOptimisation(const char* control_node, const char* command,
                              const char* state_node) {
    output_.close();
    input_.close();
    output_.open(path(control_node));
    output_.putLine(command);
    input_.open(path(state_node));
    readState();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
