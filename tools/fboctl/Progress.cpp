#include "Progress.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace fboctl {

namespace {

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
        const size_t expected = limit_ == 0 ? 1 : (ranges_ + limit_ - 1) / limit_;
        meter_.begin(zones_, std::max(expected, zones_));
    } else if (messageAfter(text, "zone[") != nullptr) {
        ++failed_;
    } else if (messageAfter(text, "lba null.") != nullptr ||
               messageAfter(text, "read fbo max lrc fail.") != nullptr) {
        refused_ = true;
    }
}

void Progress::finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    meter_.finish();
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
