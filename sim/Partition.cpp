#include "sim/Partition.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace sim {

namespace {

constexpr off_t kSize = 16 * 1024 * 1024;

// Where the record lies in the partition, and its numbers in the record.
constexpr off_t kRecord = 9 * 1024 * 1024;
constexpr size_t kRecordLength = 107;
constexpr off_t kBootLun = 35;
constexpr off_t kSnapshotBootLun = 39;

ssize_t orErrno(ssize_t result) {
    return result < 0 ? -errno : result;
}

}  // namespace

Partition::Partition() : fd_(memfd_create("gsort", MFD_CLOEXEC)) {
    if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
    resize(kSize);
    // Every byte of the record differs from its neighbours, so that a byte out of place shows.
    char record[kRecordLength] = "snapshot";
    for (size_t i = 8; i < kRecordLength; ++i) record[i] = static_cast<char>(i);
    write(record, sizeof(record), kRecord);
}

Partition::~Partition() {
    close(fd_);
}

ssize_t Partition::read(char* bytes, size_t count, off_t offset) const {
    return orErrno(pread(fd_, bytes, count, offset));
}

ssize_t Partition::write(const char* bytes, size_t count, off_t offset) {
    return orErrno(pwrite(fd_, bytes, count, offset));
}

int Partition::resize(off_t size) {
    return static_cast<int>(orErrno(ftruncate(fd_, size)));
}

void Partition::setBootLun(int32_t lun) {
    write(reinterpret_cast<const char*>(&lun), sizeof(lun), kRecord + kBootLun);
}

void Partition::setSnapshotBootLun(int32_t lun) {
    write(reinterpret_cast<const char*>(&lun), sizeof(lun), kRecord + kSnapshotBootLun);
}

}  // namespace sim
