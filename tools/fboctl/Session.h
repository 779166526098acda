#pragma once

#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <json/json.h>
#include <vendor/nivora/hardware/fbo/1.0/IFbo.h>

#include "Options.h"
#include "Platform.h"

namespace fboctl {

using ::android::sp;
using ::android::hardware::hidl_string;
using ::vendor::nivora::hardware::fbo::V1_0::IFbo;

/** No answer comes from the service: an error escaped the call. */
struct CallError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** There is no service to call; the text says so. */
struct NoService : CallError {
    using CallError::CallError;
};

/** Makes `call` and returns what it answers. Throws CallError if no answer comes. */
template <typename Call>
auto ask(Call call) {
    try {
        auto answer = call();
        if (answer.isOk()) return answer;
        if (answer.isDeadObject()) throw CallError("the service has died");
        throw CallError("the call failed: " + answer.description());
    } catch (const CallError&) {
        throw;
    } catch (const std::bad_optional_access&) {
        throw CallError("an error escaped the call: the phone has no UFS host controller");
    } catch (const std::invalid_argument&) {
        throw CallError(
                "an error escaped the call: a node or property that must hold a number "
                "holds none; fboctl doctor names it");
    } catch (const std::out_of_range&) {
        throw CallError("an error escaped the call: a number beyond 32 bits, or a rule of \"V\"");
    } catch (const std::exception& error) {
        throw CallError(std::string("an error escaped the call: ") + error.what());
    }
}

/** What a command needs while it runs: the platform, the service that it asks and its log. */
class Session {
  public:
    /**
     * Throws NoService if no service is registered; it does not wait for one.
     *
     * @param listener takes what the service logs, besides the user who may want to see it too;
     *     on any thread. May be empty.
     */
    explicit Session(const Options& options, LogReader listener = {});

    const sp<IFbo>& service() const { return service_; }
    /** Waits until what the service has logged so far has been handed on. */
    void waitForLog() const { platform_->waitForLog(); }
    Platform& platform() const { return *platform_; }

  private:
    const std::unique_ptr<Platform> platform_;
    sp<IFbo> service_;
};

/** Prints a result for scripts. */
void printJson(const Json::Value& value);

}  // namespace fboctl
