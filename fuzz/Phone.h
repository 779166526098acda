#pragma once

#include <ctime>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fbo/Fbo.h"
#include "fuzz/Require.h"
#include "sim/Simulator.h"

namespace fuzz {

using vendor::nivora::hardware::fbo::implementation::Fbo;
using vendor::nivora::hardware::fbo::implementation::hidl_string;

/** The errors that end a call, as a set. */
enum Escape : unsigned {
    kNone = 0,
    /** A node or a property that must hold a number holds none, or too large a one. */
    kNoNumber = 1,
    /** A text is too short for what it begins with. */
    kNoText = 2,
    /** There is no callback to answer to. */
    kNoCallback = 4,
    kOther = 8,
};

/** The device of a target's phone, see sim::Simulator. */
extern const char* const kDevice;

/**
 * A simulated phone and the service on it, one for the process. Every input finds the service as
 * it is when its process starts. No time passes but that which is slept, and the service's thread
 * does not run: what it would do is called.
 */
class Phone {
  public:
    /** Makes a service whose thread has ended, as it is given no socket. */
    template <typename Service>
    static android::sp<Service> serve() {
        const android::sp<Service> service = new Service;
        service->worker.join();
        return service;
    }

    /** The one of this process, made by LLVMFuzzerInitialize(). */
    static Phone& get();

    Phone();

    sim::Simulator& device() { return device_; }
    Fbo& service() { return *service_; }

    /** Starts an input: takes back what the one before has left in the service. */
    void restart();

    /**
     * Runs `call`, which may end by the errors in `escapes`. It may leave no descriptor open and
     * sleep for `limit` seconds at most.
     *
     * @return whether it came to its end.
     */
    template <typename Call>
    bool run(unsigned escapes, time_t limit, Call call) {
        const int descriptor = lowestDescriptor();
        const time_t start = time(nullptr);
        const Escape escape = escapeOf(call);
        require((escape & ~escapes) == 0, "no other error ends the call");
        require(time(nullptr) - start <= limit, "the call takes no longer than it may");
        require(lowestDescriptor() == descriptor, "no descriptor is left open");
        return escape == kNone;
    }

    /**
     * Runs `method`, a call that answers to the callback that it is handed, or has none to answer
     * to. Nothing if an error ended it.
     */
    template <typename Method>
    std::optional<std::string> answerOf(bool has_callback, unsigned escapes, time_t limit,
                                        Method method) {
        std::vector<std::string> answers;
        std::function<void(const hidl_string&)> callback;
        if (has_callback) {
            callback = [&](const hidl_string& answer) { answers.push_back(answer); };
        } else {
            escapes |= kNoCallback;
        }
        const bool ended = run(escapes, limit, [&] { method(callback); });
        if (!has_callback) require(!ended, "there is no answer without a callback");
        require(answers.size() == (ended ? 1 : 0), "a call answers once");
        if (!ended) return std::nullopt;
        return answers[0];
    }

    /** The texts that were stored in `node` since restart(), in their order. */
    std::vector<std::string> stores(const std::string& node) const;

    /** What `function` has logged since restart(), without its name and source line. */
    std::vector<std::string> logOf(const std::string& function) const;

  private:
    /** Runs `call` and tells what ended it. */
    template <typename Call>
    static Escape escapeOf(Call call) {
        try {
            call();
        } catch (const std::bad_function_call&) {
            return kNoCallback;
        } catch (const std::logic_error& error) {
            return kindOf(error);
        }
        return kNone;
    }

    static Escape kindOf(const std::logic_error& error);

    /** The descriptor that would be opened next. */
    static int lowestDescriptor();

    /** Where the process has been before it entered the phone. */
    const int directory_;
    sim::Simulator device_;
    android::sp<Fbo> service_;
    std::vector<std::string> log_;
};

}  // namespace fuzz
