#include "fbo/defrag/Ufs40.h"

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

constexpr char kName[] = "UFS40_FBO_Imp";

constexpr char kAnalyse[] = "1";
constexpr char kOptimise[] = "2";

/** What "fbo_prog_state" tells. */
enum State { kOngoing = 1, kAnalysed = 2, kOptimised = 3, kFailed = 255 };

class Ufs40Engine : public Engine {
  public:
    using Engine::Engine;

  private:
    bool pass() override {
        return clear() && sendList(node::kProgState) && analyse() && readReport() && takeLevel() &&
               optimise();
    }

    bool clear() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] check flc ops.");
        const int result = FBO_Clear(path(node::kOperationControl), path(node::kProgState));
        if (result != kDone) return endWith(result);
        if (hal_status_flag != 0) {
            FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop.");
            return endWith(kDone);
        }
        return true;
    }

    bool analyse() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] enable analysis");
        if (!openOutput(node::kOperationControl)) return false;
        output_.putLine(kAnalyse);
        readState();
        if (state_ == kOngoing) {
            FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] fbo analysis on going.");
            if (!awaitEnd(true)) return false;
        } else if (state_ == kAnalysed) {
            FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] fbo complete analysis.");
        } else {
            return retryAnalysis();
        }
        if (state_ != kAnalysed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] flc enable abnormal, exit");
            return endWith(kDeviceAbnormal);
        }
        return true;
    }

    bool takeLevel() {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] read buff success, the level is \n: %s.",
                report_.c_str());
        return keepLevel();
    }

    /** Ends the call, or the pass: the second one measures what has come of it. */
    bool optimise() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] enable optimization.");
        startOptimisation(node::kOperationControl, kOptimise, node::kProgState);
        if (state_ == kFailed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] fbo enable optimization fail.");
            ++cmd_fail_count;
            return endWith(kDone);
        }
        if (!awaitEnd(false)) return false;
        if (state_ != kOptimised) return endWith(kDone);
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] fbo_defrag_enable success.");
        first_pass_ = false;
        return false;
    }

    /** Polls while the device is at work. False if a stop is requested. */
    bool awaitEnd(bool tells_state) {
        for (int polls = 0; state_ == kOngoing && polls < kPollLimit; ++polls) {
            if (hal_status_flag != 0) {
                FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop");
                return false;
            }
            sleep(kPollSeconds);
            input_.readToken(token_);
            ++cmd_retry_count;
            if (tells_state) {
                FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] flc ops is: %s.", token_.c_str());
            }
            state_ = std::stoi(token_);
        }
        return true;
    }
};

}  // namespace

int32_t UFS40_FBO_Imp(std::string lr_list, int32_t& level_before, int32_t& level_after) {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return kDone;
    return Ufs40Engine(kName, *directory, lr_list, level_before, level_after).run();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
