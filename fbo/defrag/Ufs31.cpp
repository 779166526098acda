#include "fbo/defrag/Ufs31.h"

#include "fbo/defrag/Clear.h"
#include "fbo/defrag/Cycle.h"
#include "fbo/defrag/Nodes.h"
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

class Ufs31Cycle : public Cycle {
  public:
    using Cycle::Cycle;

  private:
    Outcome pass() override {
        return inOrder([this] { return clear(); }, [this] { return sendList(node::kFlcOps); },
                       [this] { return resendList(); }, [this] { return analyse(); },
                       [this] { return readReport(); }, [this] { return takeLevel(); },
                       [this] { return defragment(); });
    }

    Outcome clear() {
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
        return nextStep();
    }

    /** Sends the list again for as long as the device does not accept it. */
    Outcome resendList() {
        readState();
        poll(
                kResendLimit,
                [this] {
                    return state_ != kListAccepted ? std::optional(kResendSeconds) : std::nullopt;
                },
                [this] {
                    // Without the line feed and the flush of the first sending: what is sent
                    // again waits in the stream until the node is closed.
                    output_.clear();
                    output_.put(lr_list_);
                    input_.readToken(token_);
                    ++cmd_retry_count;
                    ++cmd_fail_count;
                    convertState();
                });
        if (state_ != kListAccepted) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] write buffer fail");
            return endWith(kDeviceAbnormal);
        }
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] write buffer success");
        return nextStep();
    }

    Outcome analyse() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] flc enable");
        if (!open(output_, node::kFlcEnable)) return endWith(kNodeNotOpened);
        output_.putLine(kEnable);
        readState();
        if (state_ != kAnalysing && state_ != kAnalysed) return retryAnalysis();

        const bool ended = pollState(
                [](int state) {
                    return state == kAnalysing ? std::optional(kPollSeconds) : std::nullopt;
                },
                [this] {
                    FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] flc ops is: %s.", token_.c_str());
                });
        if (!ended) {
            FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop.");
            return newPass();
        }
        if (state_ != kAnalysed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] flc enable fail.");
            return endWith(kDeviceAbnormal);
        }
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] flc enable success.");
        return nextStep();
    }

    Outcome takeLevel() {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] read buff success.");
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] read buff success, the level is: %s.",
                report_.c_str());
        return keepLevel();
    }

    Outcome defragment() {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] enable defrag.");
        startOptimisation(node::kDefragEnable, kEnable, node::kDefragOps);
        if (state_ == kFailed) {
            FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] fbs_defrag_enable fail.");
            ++cmd_fail_count;
            // Read once more and start over, as often as the device fails: only a stop or
            // another failure ends it.
            input_.readToken(token_);
            return newPass();
        }
        if (!pollState(secondsToDefrag, [] {})) {
            FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop");
            return newPass();
        }
        if (state_ != kDefragmented) return endWith(kDone);
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] fbs_defrag_enable success.");
        first_pass_ = false;
        return newPass();
    }

    /** A device about to finish is asked again at once. */
    static std::optional<unsigned> secondsToDefrag(int state) {
        if (state == kDefragmenting) return kPollSeconds;
        if (state == kFinishing) return 0;
        return std::nullopt;
    }
};

}  // namespace

int32_t UFS31_FBO_Imp(std::string lr_list, int32_t& level_before, int32_t& level_after) {
    return runCycle<Ufs31Cycle>(kName, lr_list, level_before, level_after);
}

}  // namespace vendor::nivora::hardware::fbo::implementation
