#include "host/LogSink.h"

#include <utility>

#include <android/log.h>

namespace host {

namespace {

LogSink g_sink;

void deliver(int priority, const char* tag, const char* text) {
    if (g_sink) g_sink(priority, tag, text);
}

}  // namespace

void setLogSink(LogSink sink) {
    g_sink = std::move(sink);
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
