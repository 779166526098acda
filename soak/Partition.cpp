#include "soak/Partition.h"

#include <algorithm>
#include <charconv>
#include <sstream>

#include "soak/Violation.h"

namespace soak {

namespace {

// The record's place on the partition, and the fields in it.
constexpr off_t kRecord = 9 * 1024 * 1024;
constexpr size_t kLength = 107;
constexpr std::string_view kMagic = "snapshot";
constexpr size_t kBootLun = 35;
constexpr size_t kSnapshotBootLun = 39;
constexpr size_t kLunLength = 4;

/** How a transfer of the whole record is traced, less its outcome. */
constexpr std::string_view kRead = "read gsort 107 at 9437184: ";
constexpr std::string_view kWrite = "write gsort 107 at 9437184: ";
constexpr std::string_view kAnyWrite = "write gsort ";
constexpr std::string_view kSize = "gsort_size ";

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

/** The bytes that were transferred; -1 if `outcome` is an error's name. */
int64_t count(std::string_view outcome) {
    int64_t number = -1;
    std::from_chars(outcome.data(), outcome.data() + outcome.size(), number);
    return number;
}

}  // namespace

Partition::Partition(std::string_view dump) {
    std::istringstream text{std::string(dump)};
    text >> size_;
    std::string digits;
    for (off_t at; text >> at >> digits;) {
        for (size_t i = 0; i < digits.size(); i += 2) {
            bytes_[at++] = static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
        }
    }
}

void Partition::follow(std::string_view trace) {
    std::istringstream text{std::string(trace)};
    for (std::string line; std::getline(text, line);) {
        const std::string_view view = line;
        if (startsWith(view, kSize)) {
            resize(static_cast<off_t>(count(view.substr(kSize.size()))));
        } else if (startsWith(view, kRead)) {
            followRead(view.substr(kRead.size()));
        } else if (startsWith(view, kWrite)) {
            followWrite(view.substr(kWrite.size()));
        } else {
            require(!startsWith(view, kAnyWrite), "the partition is written elsewhere: " + line);
        }
    }
}

void Partition::followRead(std::string_view outcome) {
    record_.clear();
    const int64_t size = count(outcome);
    if (size < 0) return;
    record_ = bytes(kRecord, static_cast<size_t>(size));
    record_.resize(kLength);
    if (startsWith(record_, kMagic)) {
        record_.replace(kSnapshotBootLun, kLunLength, record_, kBootLun, kLunLength);
    }
}

void Partition::followWrite(std::string_view outcome) {
    require(!record_.empty(), "a record is written that was not read");
    if (const int64_t size = count(outcome); size > 0) {
        store(kRecord, std::string_view(record_).substr(0, static_cast<size_t>(size)));
    }
    record_.clear();
}

void Partition::resize(off_t size) {
    size_ = size;
    bytes_.erase(bytes_.lower_bound(size), bytes_.end());
}

std::string Partition::bytes(off_t offset, size_t count) const {
    std::string bytes(count, '\0');
    for (auto byte = bytes_.lower_bound(offset);
         byte != bytes_.end() && byte->first < offset + static_cast<off_t>(count); ++byte) {
        bytes[static_cast<size_t>(byte->first - offset)] = byte->second;
    }
    return bytes;
}

void Partition::store(off_t offset, std::string_view bytes) {
    for (const char byte : bytes) {
        if (byte == 0) {
            bytes_.erase(offset);
        } else {
            bytes_[offset] = byte;
        }
        ++offset;
    }
    size_ = std::max(size_, offset);
}

std::string Partition::difference(const Partition& other) const {
    if (size_ != other.size_) {
        return "size " + std::to_string(size_) + " and " + std::to_string(other.size_);
    }
    const auto [ours, theirs] =
            std::mismatch(bytes_.begin(), bytes_.end(), other.bytes_.begin(), other.bytes_.end());
    if (ours == bytes_.end() && theirs == other.bytes_.end()) return "";
    off_t at = size_;
    if (ours != bytes_.end()) at = std::min(at, ours->first);
    if (theirs != other.bytes_.end()) at = std::min(at, theirs->first);
    return "byte " + std::to_string(at);
}

}  // namespace soak
