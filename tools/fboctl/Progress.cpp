#include "Progress.h"

#include <algorithm>
#include <utility>

#include "LogLine.h"

namespace fboctl {

namespace {

/** What the device is at when this is logged. */
constexpr struct {
    const char *function, *message, *state;
} kStates[] = {
        {"FBO_Clear", "clear ops", "clearing"},
        {"UFS31_FBO_Imp", "write buff lba is", "sending"},
        {"UFS40_FBO_Imp", "enable analysis", "analysing"},
        {"UFS31_FBO_Imp", "flc enable", "analysing"},
        {"UFS40_FBO_Imp", "enable optimization.", "optimising"},
        {"UFS31_FBO_Imp", "enable defrag.", "optimising"},
        {"FBO2_Linear_Mapping", "Enable Linear Mapping", "mapping"},
};

}  // namespace

void Progress::expect(std::vector<size_t> ranges) {
    const std::lock_guard<std::mutex> lock(mutex_);
    ranges_ = std::move(ranges);
}

void Progress::take(const std::string& text) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const size_t zones = log_.zones.size();
    log_.take(text);
    if (log_.zones.size() > zones) {
        meter_.begin(zones + 1, std::max(expectedZones(), zones + 1));
    }
    for (const auto& [function, message, state] : kStates) {
        if (messageAfter(text, function, message)) meter_.setState(state);
    }
}

size_t Progress::expectedZones() const {
    const size_t limit = log_.limit.value_or(0);
    if (limit == 0) return ranges_.size();
    size_t zones = 0;
    for (const size_t ranges : ranges_) zones += (ranges + limit - 1) / limit;
    return zones;
}

void Progress::finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    meter_.finish();
}

RunLog Progress::log() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return log_;
}

}  // namespace fboctl
