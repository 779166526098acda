#pragma once

#include <cstdint>
#include <exception>
#include <stdexcept>
#include <string>

#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

#include "Progress.h"

namespace fboctl {

using ::android::sp;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

/** What came of a defragmentation. */
struct RunResult {
    /** Sums over all calls, in the service's unit; higher is more fragmented. */
    int64_t before = 0;
    int64_t after = 0;
    size_t zones = 0;
    size_t failed_zones = 0;
    /** The user asked for a stop. */
    bool stopped = false;
    /** The service did not take the request, or answered what is no answer. */
    bool refused = false;

    bool ok() const { return failed_zones == 0 && !stopped && !refused; }
};

/** An error escaped a call of the service. */
struct CallError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** Makes `call` and returns what it answers. Throws CallError if no answer comes. */
template <typename Call>
auto ask(Call call) {
    try {
        auto answer = call();
        if (answer.isOk()) return answer;
        throw CallError(answer.description());
    } catch (const CallError&) {
        throw;
    } catch (const std::exception& error) {
        throw CallError(std::string("an error escaped the call: ") + error.what());
    }
}

/**
 * Hands `request` to FBO_trigger(), in as many calls as it takes, while `progress` is told what
 * the service logs. Ctrl-C (SIGINT, which all threads must have blocked) asks the service to stop
 * the first time and ends the program the second time.
 */
RunResult runTrigger(const sp<IFbo>& service, const std::string& request, Progress& progress);

}  // namespace fboctl
