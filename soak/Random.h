#pragma once

#include <cstddef>
#include <cstdint>

namespace soak {

/** Numbers that are the same on every machine for the same seed and run (SplitMix64). */
class Random {
  public:
    Random(uint64_t seed, uint64_t run) : state_(seed) { state_ = next() ^ run; }

    /** 0 to `limit` - 1; `limit` is at least 1. */
    int below(size_t limit) { return static_cast<int>(next() % limit); }

    bool percent(int chance) { return below(100) < chance; }

    /** An element of a container or array. */
    template <typename Choices>
    const auto& pick(const Choices& choices) {
        return *(std::begin(choices) + below(std::size(choices)));
    }

  private:
    uint64_t next() {
        state_ += 0x9e3779b97f4a7c15;
        uint64_t z = state_;
        z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9;
        z = (z ^ z >> 27) * 0x94d049bb133111eb;
        return z ^ z >> 31;
    }

    uint64_t state_;
};

}  // namespace soak
