#pragma once

/*
 * A host's stand-in for the platform's header of this name. A client is held to what a phone
 * demands of it: whoever takes the value of a failed call, or drops its answer without having
 * looked at it, is aborted.
 */

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#include <hidl/HidlSupport.h>
#include <utils/Errors.h>

namespace android::hardware {

/** What came of a call, apart from its value. */
class Status {
  public:
    enum Exception : int32_t {
        EX_NONE = 0,
        EX_ILLEGAL_ARGUMENT = -3,
        EX_TRANSACTION_FAILED = -129,
    };

    Status() = default;
    static Status ok() { return {}; }
    static Status fromExceptionCode(int32_t exception, const char* message = "") {
        return {exception, OK, message};
    }
    static Status fromStatusT(status_t error) {
        return {error == OK ? EX_NONE : EX_TRANSACTION_FAILED, error, ""};
    }

    bool isOk() const { return exception_ == EX_NONE; }
    int32_t exceptionCode() const { return exception_; }
    status_t transactionError() const { return error_; }
    std::string description() const {
        if (isOk()) return "No error";
        std::string text = "Status " + std::to_string(exception_);
        if (error_ != OK) text += ", error " + std::to_string(error_);
        return message_.empty() ? text : text + ": " + message_;
    }

  private:
    Status(int32_t exception, status_t error, const char* message)
        : exception_(exception), error_(error), message_(message) {}

    int32_t exception_ = EX_NONE;
    status_t error_ = OK;
    std::string message_;
};

namespace details {

class return_status {
  public:
    bool isOk() const {
        looked_at_ = true;
        return status_.isOk();
    }
    bool isDeadObject() const {
        looked_at_ = true;
        return status_.transactionError() == DEAD_OBJECT;
    }
    /** Reading what went wrong is not yet looking whether something did. */
    std::string description() const { return status_.description(); }

  protected:
    return_status() = default;
    return_status(Status status) : status_(std::move(status)) {}
    return_status(return_status&& other) noexcept { *this = std::move(other); }
    /** What was held here is looked at, or not, by the end of `other`. */
    return_status& operator=(return_status&& other) noexcept {
        std::swap(status_, other.status_);
        std::swap(looked_at_, other.looked_at_);
        return *this;
    }
    ~return_status() {
        if (!looked_at_) requireOk("nobody looked at the answer of a call");
    }

    void requireOk(const char* mistake) const {
        if (status_.isOk()) return;
        fprintf(stderr, "%s that failed: %s\n", mistake, description().c_str());
        abort();
    }

  private:
    Status status_;
    mutable bool looked_at_ = false;
};

}  // namespace details

/** The answer of a call: its value, or why there is none. */
template <typename T>
class Return : public details::return_status {
  public:
    Return(T value) : value_(std::move(value)) {}
    Return(Status status) : return_status(std::move(status)) {}

    operator T() const {
        requireOk("somebody took the value of a call");
        return value_;
    }
    T withDefault(T value) const { return isOk() ? value_ : std::move(value); }

  private:
    T value_{};
};

template <>
class Return<void> : public details::return_status {
  public:
    Return() = default;
    Return(Status status) : return_status(std::move(status)) {}
};

inline Return<void> Void() {
    return {};
}

}  // namespace android::hardware
