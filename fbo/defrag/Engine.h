#pragma once

#include <cstdint>
#include <string>

#include "fbo/utils/Node.h"

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Runs one zone through the device, as far as UFS 4.0 and UFS 3.1 devices do it alike: a first
 * pass that analyses and optimises, and a second one that analyses the outcome.
 *
 * A pass is a row of steps, each of which says whether the next one follows. If not, the step has
 * either ended the call, or another pass begins: after an optimisation, for the one retry, and
 * after a stop request that a poll has seen, so that the device is brought back to idle before the
 * stop ends the call.
 */
class Engine {
  public:
    /**
     * @param name the function whose name the log lines carry.
     * @param directory the FBO nodes' directory.
     */
    Engine(const char* name, const std::string& directory, const std::string& lr_list,
           int32_t& level_before, int32_t& level_after)
        : lr_list_(lr_list),
          name_(name),
          directory_(directory),
          level_before_(level_before),
          level_after_(level_after) {}
    virtual ~Engine() = default;

    /** Runs passes until a step ends the call, and returns its result. */
    int run();

  protected:
    /** Takes the steps, in their order, for as long as the next one follows. */
    virtual bool pass() = 0;

    /** Ends the call with `result`: false, as no step follows. */
    bool endWith(int result);

    std::string path(const char* node) const { return directory_ + node; }

    /** Opens a node to write that the engine cannot do without; ends the call if that fails. */
    bool openOutput(const char* node);

    /** Sends the list and leaves its node open, then opens `state_node` for reading. */
    bool sendList(const char* state_node);

    /** Asks the state node for the state that the device is in now. */
    void readState();

    /** The device does not analyse: spends the one retry, or ends the call. Always false. */
    bool retryAnalysis();

    /** Reads the fragmentation report; one too short spends the retry, or ends the call. */
    bool readReport();

    /** Keeps the level that the report tells; that of the second pass ends the call. */
    bool keepLevel();

    /**
     * Starts the optimisation by `command` to `control_node` and reads the state from
     * `state_node`. A node that does not open is not reported: the state then stays what it was.
     */
    void startOptimisation(const char* control_node, const char* command, const char* state_node);

    static constexpr int kPollLimit = 200;
    static constexpr unsigned kPollSeconds = 6;

    NodeWriter output_;
    NodeReader input_;
    const std::string& lr_list_;
    std::string report_;
    /** The last state read, as text and as number; a reading that finds nothing leaves the text. */
    std::string token_;
    int state_ = 0;

    bool first_pass_ = true;

  private:
    void logOpenFailure() const;

    const char* const name_;
    const std::string& directory_;
    int32_t& level_before_;
    int32_t& level_after_;

    /** One for the whole call, whatever it is spent on. */
    bool retry_available_ = true;
    bool ended_ = false;
    int result_ = 0;
};

}  // namespace vendor::nivora::hardware::fbo::implementation
