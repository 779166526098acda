#include "sim/Partition.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

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

std::string Partition::dump() const {
    constexpr char kDigits[] = "0123456789abcdef";
    const off_t size = lseek(fd_, 0, SEEK_END);
    std::string text = std::to_string(size);
    bool in_run = false;
    off_t end = 0;
    // What was never written is a hole; there are none but zeros in it.
    for (off_t start; (start = lseek(fd_, end, SEEK_DATA)) >= 0;) {
        end = lseek(fd_, start, SEEK_HOLE);
        std::vector<char> bytes(static_cast<size_t>(end - start));
        const ssize_t count = pread(fd_, bytes.data(), bytes.size(), start);
        for (ssize_t i = 0; i < count; ++i) {
            const auto byte = static_cast<unsigned char>(bytes[i]);
            if (byte != 0 && !in_run) text += "\n" + std::to_string(start + i) + " ";
            in_run = byte != 0;
            if (in_run) text += {kDigits[byte >> 4], kDigits[byte & 15]};
        }
        in_run = false;
    }
    return text + "\n";
}

void Partition::setBootLun(int32_t lun) {
    write(reinterpret_cast<const char*>(&lun), sizeof(lun), kRecord + kBootLun);
}

void Partition::setSnapshotBootLun(int32_t lun) {
    write(reinterpret_cast<const char*>(&lun), sizeof(lun), kRecord + kSnapshotBootLun);
}

}  // namespace sim
