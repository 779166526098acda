#include "host/LogSink.h"

#include <mutex>
#include <utility>

#include <android/log.h>

namespace host {

namespace {

struct Guarded {
    std::mutex mutex;
    LogSink sink;
};

/** Never destroyed: the service's thread may log until the very end of the process. */
Guarded& guarded() {
    static auto* guarded = new Guarded;
    return *guarded;
}

void deliver(int priority, const char* tag, const char* text) {
    const std::lock_guard<std::mutex> lock(guarded().mutex);
    if (guarded().sink) guarded().sink(priority, tag, text);
}

}  // namespace

void setLogSink(LogSink sink) {
    {
        const std::lock_guard<std::mutex> lock(guarded().mutex);
        guarded().sink = std::move(sink);
    }
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    // Older versions of the library hand the text over beside the record, newer ones inside.
    __android_log_set_logger([](const auto* record, auto... text) {
        if constexpr (sizeof...(text) == 0) {
            deliver(record->priority, record->tag, record->message);
        } else {
            deliver(record->priority, record->tag, text...);
        }
    });
}

}  // namespace host
