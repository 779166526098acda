#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "fbo/Globals.h"
#include "fbo/defrag/Nodes.h"
#include "fbo/defrag/Result.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Poll.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * The optimisation of one zone, as far as UFS 4.0 and UFS 3.1 devices go through it alike: a first
 * pass that analyses and optimises, and a second one that analyses the outcome.
 *
 * A pass is a row of steps. A stop request that a poll sees starts a new pass too, so that the
 * device is brought back to idle before the stop ends the call.
 */
class Cycle {
  public:
    virtual ~Cycle() = default;

    /**
     * @param name the function whose name the log lines carry.
     * @param directory the FBO nodes' directory.
     */
    Cycle(const char* name, const std::string& directory, const std::string& lr_list,
          int32_t& level_before, int32_t& level_after)
        : name_(name),
          directory_(directory),
          lr_list_(lr_list),
          level_before_(level_before),
          level_after_(level_after) {}

    /** Runs passes until a step ends the call, and returns its result. */
    int run();

  protected:
    /** Where a step leads: to the next step unless it says otherwise. */
    struct Outcome {
        enum { kNextStep, kNewPass, kReturn } next = kNextStep;
        int result = 0;
    };
    static Outcome nextStep() { return {}; }
    static Outcome newPass() { return {Outcome::kNewPass, 0}; }
    static Outcome endWith(int result) { return {Outcome::kReturn, result}; }

    virtual Outcome pass() = 0;

    /** Takes steps in their order, until one leads elsewhere than to the next. */
    template <typename... Steps>
    static Outcome inOrder(Steps... steps) {
        Outcome outcome;
        static_cast<void>(((outcome = steps(), outcome.next == Outcome::kNextStep) && ...));
        return outcome;
    }

    std::string path(const char* node) const { return directory_ + node; }

    /** Opens a node that the cycle cannot do without; logs if that fails. */
    template <typename Stream>
    bool open(Stream& stream, const char* node) {
        if (stream.open(path(node))) return true;
        logOpenFailure();
        return false;
    }

    /** Sends the list and leaves its node open, then opens `state_node` for reading. */
    Outcome sendList(const char* state_node);

    /** Asks the state node for the state that the device is in now. */
    void readState();
    void convertState() { state_ = std::stoi(token_); }

    /**
     * Reads the state again and again while `delay(state)` gives the seconds to wait before, at
     * most 200 times, and runs `seen()` after each reading. False if a stop request ended it.
     */
    template <typename Delay, typename Seen>
    bool pollState(Delay delay, Seen seen) {
        bool stopped = false;
        poll(
                kPollLimit,
                [&]() -> std::optional<unsigned> {
                    const std::optional<unsigned> seconds = delay(state_);
                    stopped = seconds && hal_status_flag != 0;
                    return stopped ? std::nullopt : seconds;
                },
                [&] {
                    input_.readToken(token_);
                    ++cmd_retry_count;
                    seen();
                    convertState();
                });
        return !stopped;
    }

    /** The device does not analyse: the one retry of the call, or its end. */
    Outcome retryAnalysis();

    /** Reads the fragmentation report; one too short costs the retry, or ends the call. */
    Outcome readReport();

    /** Keeps the level that the report tells, and ends the call if it is that of the second pass.
     */
    Outcome keepLevel();

    /**
     * Starts the optimisation by `command` to `control_node` and reads the state from
     * `state_node`. A node that does not open is not reported: the state then stays what it was.
     */
    void startOptimisation(const char* control_node, const char* command, const char* state_node);

    static constexpr unsigned kPollSeconds = 6;

    const char* const name_;
    const std::string& directory_;
    const std::string& lr_list_;
    int32_t& level_before_;
    int32_t& level_after_;

    NodeWriter output_;
    NodeReader input_;
    /** The last state read; a reading that finds nothing leaves it. */
    std::string token_;
    int state_ = 0;
    std::string report_;

    bool first_pass_ = true;

  private:
    static constexpr int kPollLimit = 200;

    void logOpenFailure() const;
    int32_t level() const;

    /** One for the whole call, whatever it is spent on. */
    bool retry_available_ = true;
};

/** Runs a zone through an `Engine`, a Cycle; done at once if no host controller is found. */
template <typename Engine>
int32_t runCycle(const char* name, const std::string& lr_list, int32_t& level_before,
                 int32_t& level_after) {
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return kDone;
    return Engine(name, *directory, lr_list, level_before, level_after).run();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
