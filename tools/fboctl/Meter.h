#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace fboctl {

/**
 * Shows on standard error how far a long call has come: on a terminal a bar with the time that has
 * passed, which moves while nothing is told; elsewhere a line every some seconds. Any thread may
 * tell it.
 */
class Meter {
  public:
    /**
     * @param unit what is counted, such as "zone".
     * @param shows false: nothing is shown.
     */
    Meter(std::string unit, bool shows);
    /** Ends the bar, if there is one; what has begun is then done. */
    ~Meter() { finish(); }
    Meter(const Meter&) = delete;
    Meter& operator=(const Meter&) = delete;

    /** Number `current` of `all` begins; numbers start at 1. Numbers beyond `all` are not shown. */
    void begin(size_t current, size_t all);
    /** What is being done with the current one. */
    void setState(const std::string& state);
    void finish();

  private:
    using Clock = std::chrono::steady_clock;

    void print();
    void draw(size_t done) const;
    void keepMoving();

    std::mutex mutex_;
    std::condition_variable finishing_;
    const std::string unit_;
    const bool shows_;
    const bool is_terminal_;
    const Clock::time_point started_ = Clock::now();
    Clock::time_point printed_;
    std::string state_;
    size_t current_ = 0;
    size_t all_ = 0;
    size_t printed_number_ = 0;
    bool finished_ = false;
    /** Redraws the bar of a terminal. */
    std::thread mover_;
};

}  // namespace fboctl
