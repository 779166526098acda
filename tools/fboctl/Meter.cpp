#include "Meter.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <utility>

namespace fboctl {

namespace {

constexpr std::chrono::seconds kBetweenLines{5};
constexpr int kLongestBar = 40;

int terminalWidth() {
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

}  // namespace

Meter::Meter(std::string unit, bool shows)
    : unit_(std::move(unit)), shows_(shows), is_terminal_(isatty(STDERR_FILENO) != 0) {}

void Meter::begin(size_t current, size_t all) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!shows_ || current > all || finished_) return;
    current_ = current;
    all_ = all;
    state_.clear();
    if (!is_terminal_) {
        if (current == 1 || Clock::now() - printed_ >= kBetweenLines) print();
        return;
    }
    draw(current - 1);
    if (!mover_.joinable()) mover_ = std::thread([this] { keepMoving(); });
}

void Meter::setState(const std::string& state) {
    const std::lock_guard<std::mutex> lock(mutex_);
    state_ = state;
}

void Meter::finish() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (finished_) return;
        finished_ = true;
        finishing_.notify_all();
        if (all_ > 0 && is_terminal_) {
            state_.clear();
            draw(current_);
            fputc('\n', stderr);
        } else if (printed_number_ < current_) {
            print();
        }
    }
    if (mover_.joinable()) mover_.join();
}

void Meter::print() {
    fprintf(stderr, "%s %zu of %zu\n", unit_.c_str(), current_, all_);
    printed_ = Clock::now();
    printed_number_ = current_;
}

void Meter::draw(size_t done) const {
    const auto seconds = static_cast<long>(
            std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - started_).count());
    char text[128];
    snprintf(text, sizeof(text), " %s %zu of %zu  %ld:%02ld:%02ld  %s", unit_.c_str(), current_,
             all_, seconds / 3600, seconds / 60 % 60, seconds % 60, state_.c_str());
    // The last column stays free: some terminals go to the next line there.
    const int width = terminalWidth() - 1;
    const int text_width = static_cast<int>(std::string(text).size());
    const int bar = std::clamp(width - text_width - 2, 0, kLongestBar);
    const std::string filled(done * static_cast<size_t>(bar) / all_, '#');
    if (bar > 0) {
        fprintf(stderr, "\r[%-*s]%-*.*s", bar, filled.c_str(), width - bar - 2, width - bar - 2,
                text);
    } else {
        fprintf(stderr, "\r%-*.*s", width, width, text + 1);
    }
}

void Meter::keepMoving() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!finishing_.wait_for(lock, std::chrono::seconds(1), [this] { return finished_; })) {
        draw(current_ - 1);
    }
}

}  // namespace fboctl
