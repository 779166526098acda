#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <utility>

namespace fboctl {

/**
 * Shows on standard error how far a long call has come: a bar on a terminal, lines elsewhere. Any
 * thread may tell it.
 */
class Meter {
  public:
    /** @param unit what is counted, such as "zone". */
    explicit Meter(std::string unit) : unit_(std::move(unit)) {}

    /** Number `current` of `all` begins; numbers start at 1. Numbers beyond `all` are not shown. */
    void begin(size_t current, size_t all);
    /** Completes the bar, if there is one, and ends its line. */
    void finish();

  private:
    void draw(size_t done) const;

    std::mutex mutex_;
    const std::string unit_;
    size_t current_ = 0;
    size_t all_ = 0;
    bool drawn_ = false;
};

}  // namespace fboctl
