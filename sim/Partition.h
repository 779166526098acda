#pragma once

#include <sys/types.h>

#include <cstdint>
#include <string_view>

#include <android-base/unique_fd.h>

namespace sim {

/**
 * The gsort partition: 16 MiB of zeros, with a boot-LUN record. Only pages that have been written
 * take memory.
 */
class Partition {
  public:
    Partition();

    // As pread(2), pwrite(2) and ftruncate(2), with a negative errno for a failure. As on any
    // partition, what is written ends at the partition's end.
    ssize_t read(char* bytes, size_t count, off_t offset) const;
    ssize_t write(const char* bytes, size_t count, off_t offset);
    int resize(off_t size);

    /** Sets a number of the record. */
    void setBootLun(int32_t lun);
    void setSnapshotBootLun(int32_t lun);

  private:
    android::base::unique_fd fd_;
};

}  // namespace sim
