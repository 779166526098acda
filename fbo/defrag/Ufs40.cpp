#include "fbo/defrag/Ufs40.h"

#include "fbo/defrag/Clear.h"
#include "fbo/defrag/Cycle.h"
#include "fbo/defrag/Nodes.h"
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

class Ufs40Cycle : public Cycle {
  public:
    using Cycle::Cycle;

  private:
    Outcome pass() override {
        return inOrder([this] { return clear(); }, [this] { return sendList(node::kProgState); },
                       [this] { return analyse(); }, [this] { return readReport(); },
                       [this] { return takeLevel(); }, [this] { return optimise(); });
    }

    Outcome clear() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] check flc ops.");
        const int result = FBO_Clear(path(node::kOperationControl), path(node::kProgState));
        if (result != kDone) return endWith(result);
        if (hal_status_flag != 0) {
            FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop.");
            return endWith(kDone);
        }
        return nextStep();
    }

    Outcome analyse() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] enable analysis");
        if (!open(output_, node::kOperationControl)) return endWith(kNodeNotOpened);
        output_.putLine(kAnalyse);
        readState();
        if (state_ == kOngoing) {
            FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] fbo analysis on going.");
            if (!awaitEnd([this] {
                    FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] flc ops is: %s.", token_.c_str());
                })) {
                return newPass();
            }
        } else if (state_ == kAnalysed) {
            FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] fbo complete analysis.");
        } else {
            return retryAnalysis();
        }
        if (state_ != kAnalysed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] flc enable abnormal, exit");
            return endWith(kDeviceAbnormal);
        }
        return nextStep();
    }

    Outcome takeLevel() {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] read buff success, the level is \n: %s.",
                report_.c_str());
        return keepLevel();
    }

    Outcome optimise() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] enable optimization.");
        startOptimisation(node::kOperationControl, kOptimise, node::kProgState);
        if (state_ == kFailed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] fbo enable optimization fail.");
            ++cmd_fail_count;
            return endWith(kDone);
        }
        if (!awaitEnd([] {})) return newPass();
        if (state_ != kOptimised) return endWith(kDone);
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] fbo_defrag_enable success.");
        first_pass_ = false;
        return newPass();
    }

    /** Polls while the device is at work. False if a stop was requested. */
    template <typename Seen>
    bool awaitEnd(Seen seen) {
        const bool ended = pollState(
                [](int state) {
                    return state == kOngoing ? std::optional(kPollSeconds) : std::nullopt;
                },
                seen);
        if (!ended) FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop");
        return ended;
    }
};

}  // namespace

int32_t UFS40_FBO_Imp(std::string lr_list, int32_t& level_before, int32_t& level_after) {
    return runCycle<Ufs40Cycle>(kName, lr_list, level_before, level_after);
}

}  // namespace vendor::nivora::hardware::fbo::implementation
