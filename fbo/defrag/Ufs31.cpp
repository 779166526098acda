#include "fbo/defrag/Ufs31.h"

#include <unistd.h>

#include "fbo/Globals.h"
#include "fbo/defrag/Clear.h"
#include "fbo/defrag/Engine.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/defrag/Result.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr char kName[] = "UFS31_FBO_Imp";

constexpr char kEnable[] = "1";

constexpr int kResendLimit = 10;
constexpr unsigned kResendSeconds = 30;

/** What "fbs_flc_ops" tells. */
enum FlcState { kListAccepted = 1, kAnalysing = 2, kAnalysed = 3 };

/** What "fbs_defrag_ops" tells. */
enum DefragState { kDefragmented = 0, kDefragmenting = 2, kFinishing = 3, kFailed = 255 };

class Ufs31Engine : public Engine {
  public:
    using Engine::Engine;

  private:
    bool pass() override {
        return clear() && sendList(node::kFlcOps) && resendList() && analyse() && readReport() &&
               takeLevel() && defragment();
    }

    bool clear() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] check flc ops.");
        if (FBO_Clear(path(node::kFlcEnable), path(node::kFlcOps)) != kDone) {
            return endWith(kDeviceAbnormal);
        }
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] check defrag ops.");
        if (FBO_Clear(path(node::kDefragEnable), path(node::kDefragOps)) != kDone) {
            return endWith(kDeviceAbnormal);
        }
        if (hal_status_flag != 0) {
            FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop");
            return endWith(kDone);
        }
        return true;
    }

    /** Sends the list again for as long as the device does not accept it; a stop has to wait. */
    bool resendList() {
        readState();
        for (int sent = 0; state_ != kListAccepted && sent < kResendLimit; ++sent) {
            sleep(kResendSeconds);
            // Without the line feed and the flush of the first sending: what is sent again waits
            // in the stream until the node is closed.
            output_.clear();
            output_.put(lr_list_);
            input_.readToken(token_);
            ++cmd_retry_count;
            ++cmd_fail_count;
            state_ = std::stoi(token_);
        }
        if (state_ != kListAccepted) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] write buffer fail");
            return endWith(kDeviceAbnormal);
        }
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] write buffer success");
        return true;
    }

    bool analyse() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] flc enable");
        if (!openOutput(node::kFlcEnable)) return false;
        output_.putLine(kEnable);
        readState();
        if (state_ != kAnalysing && state_ != kAnalysed) return retryAnalysis();

        for (int polls = 0; state_ == kAnalysing && polls < kPollLimit; ++polls) {
            if (hal_status_flag != 0) {
                FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop.");
                return false;
            }
            sleep(kPollSeconds);
            input_.readToken(token_);
            ++cmd_retry_count;
            FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] flc ops is: %s.", token_.c_str());
            state_ = std::stoi(token_);
        }
        if (state_ != kAnalysed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] flc enable fail.");
            return endWith(kDeviceAbnormal);
        }
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] flc enable success.");
        return true;
    }

    bool takeLevel() {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] read buff success.");
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] read buff success, the level is: %s.",
                report_.c_str());
        return keepLevel();
    }

    /** Ends the call, or the pass: the second one measures what has come of it. */
    bool defragment() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] enable defrag.");
        startOptimisation(node::kDefragEnable, kEnable, node::kDefragOps);
        if (state_ == kFailed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] fbs_defrag_enable fail.");
            ++cmd_fail_count;
            // Read once more and start over, as often as the device fails: only a stop or
            // another failure ends it.
            input_.readToken(token_);
            return false;
        }
        for (int polls = 0;
             (state_ == kDefragmenting || state_ == kFinishing) && polls < kPollLimit; ++polls) {
            if (hal_status_flag != 0) {
                FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop");
                return false;
            }
            // A device about to finish is asked again at once.
            if (state_ != kFinishing) sleep(kPollSeconds);
            input_.readToken(token_);
            ++cmd_retry_count;
            state_ = std::stoi(token_);
        }
        if (state_ != kDefragmented) return endWith(kDone);
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] fbs_defrag_enable success.");
        first_pass_ = false;
        return false;
    }
};

}  // namespace

int32_t UFS31_FBO_Imp(std::string lr_list, int32_t& level_before, int32_t& level_after) {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return kDone;
    return Ufs31Engine(kName, *directory, lr_list, level_before, level_after).run();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
