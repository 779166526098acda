#pragma once

/*
 * A host's stand-in for the platform's header of this name: as much of it as a generated
 * interface header uses, spelled as on a phone.
 */

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android::hidl::base::V1_0 {
struct IBase;
}  // namespace android::hidl::base::V1_0

namespace android::hardware {

namespace details {

/** Marks an interface class, as opposed to its proxies. */
struct i_tag {};

template <typename T>
std::string toHexString(T value) {
    constexpr char kDigits[] = "0123456789abcdef";
    auto rest = static_cast<std::make_unsigned_t<T>>(value);
    std::string text;
    do {
        text.insert(text.begin(), kDigits[rest % 16]);
        rest /= 16;
    } while (rest != 0);
    return "0x" + text;
}

/** Without a name, so that what generated headers specialise belongs to each file that includes. */
inline namespace {
template <typename T>
constexpr std::array<T, 0> hidl_enum_values{};
}  // namespace

}  // namespace details

/** A text as it travels through an interface: bytes and a length, NUL-terminated. */
struct hidl_string {
    hidl_string() = default;
    hidl_string(const char* text) : text_(text == nullptr ? "" : text) {}
    hidl_string(const char* text, size_t length) : text_(text, length) {}
    hidl_string(const std::string& text) : text_(text) {}

    const char* c_str() const { return text_.c_str(); }
    size_t size() const { return text_.size(); }
    bool empty() const { return text_.empty(); }
    operator std::string() const { return text_; }

  private:
    std::string text_;
};

/** As on a phone, what comes behind a NUL is not compared. */
inline bool operator==(const hidl_string& a, const hidl_string& b) {
    return strcmp(a.c_str(), b.c_str()) == 0;
}
inline bool operator!=(const hidl_string& a, const hidl_string& b) {
    return !(a == b);
}

template <typename T>
struct hidl_vec : std::vector<T> {
    using std::vector<T>::vector;
};

template <typename T, size_t kSize>
struct hidl_array : std::array<T, kSize> {
    T* data() { return std::array<T, kSize>::data(); }
};

/** Descriptors do not travel within a process; nothing here passes one. */
struct hidl_handle {};

struct hidl_death_recipient : public virtual RefBase {
    virtual void serviceDied(uint64_t cookie,
                             const wp<::android::hidl::base::V1_0::IBase>& who) = 0;
};

template <typename Enum>
using hidl_bitfield = std::underlying_type_t<Enum>;

template <typename T>
std::enable_if_t<std::is_arithmetic_v<T>, std::string> toString(T value) {
    return std::to_string(value);
}

}  // namespace android::hardware
