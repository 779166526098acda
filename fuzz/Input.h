#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

/** Takes an input apart, from its start on. One that has ended gives zeros and empty texts. */
class Input {
  public:
    Input(const uint8_t* data, size_t size) : left_(reinterpret_cast<const char*>(data), size) {}

    bool ended() const { return left_.empty(); }

    uint8_t byte() {
        const std::string_view taken = take(1);
        return taken.empty() ? 0 : static_cast<uint8_t>(taken[0]);
    }

    /** The next `length` bytes, or as many as there are. */
    std::string bytes(size_t length) { return std::string(take(length)); }

    /** A text that says its length, up to 255, in the byte before it. */
    std::string text() { return bytes(byte()); }

    std::string rest() { return bytes(left_.size()); }

    /** Four bytes, the most significant first. */
    int32_t number() {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) value = value << 8 | byte();
        return static_cast<int32_t>(value);
    }

  private:
    std::string_view take(size_t length) {
        const std::string_view taken = left_.substr(0, length);
        left_.remove_prefix(taken.size());
        return taken;
    }

    std::string_view left_;
};

}  // namespace fuzz
