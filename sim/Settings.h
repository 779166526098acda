#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "sim/Profile.h"

namespace sim {

/** A duration that never ends. A moment and several such durations add up without an overflow. */
constexpr int64_t kStuck = std::numeric_limits<int64_t>::max() / 8;

/** A sequence of values, each used once, and the last one again and again. */
class Series {
  public:
    Series(int64_t value) : values_{value} {}

    /**
     * Reads numbers of `least` to `most` separated by slashes; "stuck" is a number too. Throws
     * std::invalid_argument if they are none.
     */
    static Series parse(std::string_view text, int64_t least, int64_t most);

    int64_t take();

  private:
    Series() = default;

    std::vector<int64_t> values_;
    size_t next_ = 0;
};

/** The numeric settings of a device. Texts and faults of single nodes are set in the Tree. */
class Settings {
  public:
    explicit Settings(const Profile& profile) : profile_(profile) {}

    /**
     * Sets `name` to the series `value`. Throws std::invalid_argument if the device has no such
     * key or the value does not fit.
     */
    void set(std::string_view name, std::string_view value);

    /** The next value of `key`. */
    int64_t take(const std::string& key) { return series_.at(key).take(); }

    /** The keys with what they mean, a line each, for a help text. */
    static std::string describe();

    /** Whether there is a setting of this name. */
    static bool knows(std::string_view name);

  private:
    static std::map<std::string, Series, std::less<>> defaults();

    const Profile& profile_;
    std::map<std::string, Series, std::less<>> series_ = defaults();
};

}  // namespace sim
