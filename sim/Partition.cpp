#include "sim/Partition.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "fbo/snapshot/BootLun.h"

namespace sim {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

constexpr off_t kSize = 16 * 1024 * 1024;

ssize_t orErrno(ssize_t result) {
    return result < 0 ? -errno : result;
}

}  // namespace

Partition::Partition() : fd_(memfd_create("gsort", MFD_CLOEXEC)) {
    if (!fd_.ok()) throw std::system_error(errno, std::generic_category(), "memfd_create");
    resize(kSize);
    // The record's place and layout are the library's; SnapshotTest has them as numbers of its own.
    BootLunRecord record{};
    memcpy(record.magic_str, kSnapshotMagic, sizeof(kSnapshotMagic));
    write(reinterpret_cast<const char*>(&record), sizeof(record), kBootLunRecordOffset);
}

ssize_t Partition::read(char* bytes, size_t count, off_t offset) const {
    return orErrno(pread(fd_.get(), bytes, count, offset));
}

ssize_t Partition::write(const char* bytes, size_t count, off_t offset) {
    const off_t size = lseek(fd_.get(), 0, SEEK_END);
    if (offset >= size) return -ENOSPC;
    const size_t room = static_cast<size_t>(size - std::max<off_t>(offset, 0));
    return orErrno(pwrite(fd_.get(), bytes, std::min(count, room), offset));
}

int Partition::resize(off_t size) {
    return static_cast<int>(orErrno(ftruncate(fd_.get(), size)));
}

void Partition::setBootLun(int32_t lun) {
    write(reinterpret_cast<const char*>(&lun), sizeof(lun),
          kBootLunRecordOffset + offsetof(BootLunRecord, bootlun));
}

void Partition::setSnapshotBootLun(int32_t lun) {
    write(reinterpret_cast<const char*>(&lun), sizeof(lun),
          kBootLunRecordOffset + offsetof(BootLunRecord, snapbootLun));
}

}  // namespace sim
