#include "Progress.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fboctl {

namespace {

constexpr int kBarWidth = 40;
/** The service never puts more ranges into a zone. */
constexpr long kMaxRanges = 127;

/** What follows `start` in a line of FBO_trigger; null if it is no such line. */
const char* messageAfter(const std::string& text, const char* start) {
    if (text.compare(0, 12, "FBO_trigger:") != 0) return nullptr;
    const size_t message = text.find("] ");
    if (message == std::string::npos) return nullptr;
    const char* at = text.c_str() + message + 2;
    return strncmp(at, start, strlen(start)) == 0 ? at + strlen(start) : nullptr;
}

}  // namespace

void Progress::take(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (messageAfter(text, "fbo_max_lrc is larger") != nullptr) {
        limit_ = kMaxRanges;
    } else if (const char* limit = messageAfter(text, "fbo_max_lrc is ")) {
        limit_ = static_cast<size_t>(std::max(0l, strtol(limit, nullptr, 10)));
    } else if (messageAfter(text, "lba is: ") != nullptr) {
        ++zones_;
        if (isatty(STDERR_FILENO) == 0) {
            fprintf(stderr, "zone %zu of %zu\n", zones_, allZones());
        } else {
            show(zones_ - 1);
        }
    } else if (messageAfter(text, "zone[") != nullptr) {
        ++failed_;
    } else if (messageAfter(text, "lba null.") != nullptr ||
               messageAfter(text, "read fbo max lrc fail.") != nullptr) {
        refused_ = true;
    }
}

size_t Progress::allZones() const {
    const size_t expected = limit_ == 0 ? 1 : (ranges_ + limit_ - 1) / limit_;
    return std::max(expected, zones_);
}

void Progress::show(size_t done) {
    const std::string filled(done * kBarWidth / allZones(), '#');
    fprintf(stderr, "\r[%-*s] zone %zu of %zu", kBarWidth, filled.c_str(), zones_, allZones());
    bar_shown_ = true;
}

void Progress::finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!bar_shown_) return;
    show(zones_);
    fputc('\n', stderr);
}

size_t Progress::zones() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return zones_;
}

size_t Progress::failedZones() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return failed_;
}

bool Progress::refused() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return refused_;
}

}  // namespace fboctl
