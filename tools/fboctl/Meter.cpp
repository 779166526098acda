#include "Meter.h"

#include <unistd.h>

#include <cstdio>

namespace fboctl {

namespace {

constexpr int kWidth = 40;

}  // namespace

void Meter::begin(size_t current, size_t all) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (current > all) return;
    current_ = current;
    all_ = all;
    if (isatty(STDERR_FILENO) != 0) {
        draw(current - 1);
        drawn_ = true;
    } else {
        fprintf(stderr, "%s %zu of %zu\n", unit_.c_str(), current, all);
    }
}

void Meter::finish() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!drawn_) return;
    draw(current_);
    fputc('\n', stderr);
    drawn_ = false;
}

void Meter::draw(size_t done) const {
    const std::string filled(done * kWidth / all_, '#');
    fprintf(stderr, "\r[%-*s] %s %zu of %zu", kWidth, filled.c_str(), unit_.c_str(), current_,
            all_);
}

}  // namespace fboctl
