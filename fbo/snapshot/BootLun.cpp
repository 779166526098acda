#include "fbo/snapshot/BootLun.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

/** The record, and a NUL behind it so that the magic can be logged as a text. */
union RecordBuffer {
    char bytes[sizeof(BootLunRecord) + 1];
    BootLunRecord record;
};

}  // namespace

int read_from_partition(char* buffer, int count, int offset) {
    const unique_fd partition = openFile(kGsortPartition, O_RDWR);
    if (!partition.ok()) {
        FBO_LOGE("[UTILS-HAL] open ddr_gsort_partition fail %s\n", strerror(errno));
        return -1;
    }
    if (lseek(partition.get(), offset, SEEK_SET) < 0) {
        FBO_LOGE("[UTILS-HAL] lseek fail\n");
        return -1;
    }
    const auto size = static_cast<int>(readFile(partition.get(), buffer, count));
    if (size < 0) {
        FBO_LOGE("[UTILS-HAL] read ddr_gsort_partition fail\n");
    } else {
        buffer[size] = '\0';
    }
    return size;
}

int write_to_partition(char* buffer, int count, int offset) {
    const unique_fd partition = openFile(kGsortPartition, O_RDWR);
    if (!partition.ok()) {
        // With a comma, unlike the line of the read.
        FBO_LOGE("[UTILS-HAL] open ddr_gsort_partition fail, %s\n", strerror(errno));
        return -1;
    }
    if (lseek(partition.get(), offset, SEEK_SET) < 0) {
        FBO_LOGE("[UTILS-HAL] lseek fail\n");
        return -1;
    }
    // Not synced: the record has the time of the whole backup to reach the device.
    const auto size = static_cast<int>(write(partition.get(), buffer, count));
    if (size < 0) FBO_LOGE("[UTILS-HAL] write ddr_gsort_partition fail\n");
    return size;
}

int setBootlunInfo() {
    const std::unique_ptr<RecordBuffer> buffer(new (std::nothrow) RecordBuffer{});
    if (!buffer) {
        FBO_LOGE("[SNAPSHOT-HAL] malloc fail");
        return -1;
    }
    const int read =
            read_from_partition(buffer->bytes, sizeof(BootLunRecord), kBootLunRecordOffset);
    if (read < 0) {
        FBO_LOGE("[SNAPSHOT-HAL] read_from_partition fail");
        return read;
    }
    BootLunRecord& record = buffer->record;
    FBO_LOGD("[SNAPSHOT-HAL] magic_str %s, bootlun %d, snapbootLun %d", buffer->bytes,
             record.bootlun, record.snapbootLun);
    if (memcmp(record.magic_str, kSnapshotMagic, sizeof(kSnapshotMagic)) == 0)
        record.snapbootLun = record.bootlun;

    const int written =
            write_to_partition(buffer->bytes, sizeof(BootLunRecord), kBootLunRecordOffset);
    if (written < 0) {
        FBO_LOGE("[SNAPSHOT-HAL] write_to_partition fail");
    } else {
        FBO_LOGD("[SNAPSHOT-HAL] setBootlunInfo success");
    }
    return written;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
