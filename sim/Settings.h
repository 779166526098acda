#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace sim {

/** A duration that never ends. */
constexpr int64_t kStuck = std::numeric_limits<int32_t>::max();

/** A sequence of values, each used once, and the last one again and again. */
class Series {
  public:
    Series(int64_t value) : values_{value} {}

    /** Reads numbers separated by slashes; "stuck" is a number too. */
    static Series parse(std::string_view text);

    int64_t take();

  private:
    Series() = default;

    std::vector<int64_t> values_;
    size_t next_ = 0;
};

/** The numeric settings of a device. Texts and faults of single nodes are set in the Tree. */
class Settings {
  public:
    /**
     * Sets `key` to the series `value`. Throws std::invalid_argument if there is no such key or
     * the value does not fit.
     */
    void set(std::string_view key, std::string_view value);

    /** The next value of `key`. */
    int64_t take(const std::string& key) { return series_.at(key).take(); }

    /** The keys with what they mean, a line each, for a help text. */
    static std::string describe();

  private:
    static std::map<std::string, Series, std::less<>> defaults();

    std::map<std::string, Series, std::less<>> series_ = defaults();
};

}  // namespace sim
