#include "host/LogSink.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
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

void logTo(int file, bool show) {
    setLogSink([file, show, start = time(nullptr)](int priority, const char* tag,
                                                   const char* text) {
        const char letter = "??VDIWEF"[priority & 7];
        const time_t now = time(nullptr);
        tm date{};
        localtime_r(&now, &date);
        char day[32];
        strftime(day, sizeof(day), "%m-%d %H:%M:%S", &date);
        char prefix[96];
        snprintf(prefix, sizeof(prefix), "%s.000 %5d %5d %c %-8s: ", day, getpid(), gettid(),
                 letter, tag);
        std::string lines = prefix;
        for (const char* c = text; *c != '\0'; ++c) {
            lines += *c;
            if (*c == '\n') lines += prefix;
        }
        lines += '\n';
        if (write(file, lines.data(), lines.size()) < 0) perror("the log");
        if (!show || strcmp(tag, kClientTag) == 0) return;
        fprintf(stderr, "%8ld s  %c %s: %s\n", static_cast<long>(now - start), letter, tag, text);
    });
}

}  // namespace host
