#pragma once

/*
 * A host's stand-in for the platform's header of this name. Within a process no transport can
 * fail, so every Return is a good one.
 */

#include <string>
#include <utility>

#include <hidl/HidlSupport.h>

namespace android::hardware {

namespace details {

class return_status {
  public:
    bool isOk() const { return true; }
    bool isDeadObject() const { return false; }
    std::string description() const { return "No error"; }
};

}  // namespace details

template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : value_(std::move(value)) {}
    operator T() const { return value_; }
    T withDefault(T) const { return value_; }

  private:
    T value_;
};

template <>
class Return<void> : public details::return_status {};

inline Return<void> Void() {
    return {};
}

}  // namespace android::hardware
