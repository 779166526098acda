#include "Progress.h"

#include <algorithm>
#include <cstdlib>

#include "LogLine.h"

namespace fboctl {

namespace {

/** The service never puts more ranges into a zone. */
constexpr size_t kMaxRanges = 127;

}  // namespace

void Progress::take(const std::string& text) {
    const auto says = [&](const char* start) { return messageAfter(text, "FBO_trigger", start); };
    const std::lock_guard<std::mutex> lock(mutex_);
    if (says("fbo_max_lrc is larger")) {
        limit_ = kMaxRanges;
    } else if (const auto limit = says("fbo_max_lrc is ")) {
        limit_ = static_cast<size_t>(std::max(0L, strtol(limit->data(), nullptr, 10)));
    } else if (says("lba is: ")) {
        ++zones_;
        const size_t expected = limit_ == 0 ? 1 : (ranges_ + limit_ - 1) / limit_;
        meter_.begin(zones_, std::max(expected, zones_));
    } else if (says("zone[")) {
        ++failed_;
    } else if (says("lba null.") || says("read fbo max lrc fail.")) {
        refused_ = true;
    }
    for (const char* function : {"FBO_trigger", "UFS40_FBO_Imp", "UFS31_FBO_Imp"}) {
        if (messageAfter(text, function, "hal stop")) stopped_ = true;
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

bool Progress::stopped() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return stopped_;
}

}  // namespace fboctl
