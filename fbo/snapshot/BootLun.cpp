#include "fbo/snapshot/BootLun.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr char kPartition[] = "/dev/block/by-name/gsort";
constexpr int kRecordOffset = 9 * 1024 * 1024;
constexpr char kMagic[] = {'s', 'n', 'a', 'p', 's', 'h', 'o', 't'};

/** The record on the partition; its numbers are little-endian, as the processor's are. */
struct __attribute__((packed)) BootLunRecord {
    /** "snapshot" in a snapshot record, without or with a NUL behind it. */
    char magic_str[8];
    char uninterpreted[27];
    /** The boot LUN in use. */
    int32_t bootlun;
    /** The boot LUN that the snapshot protects. */
    int32_t snapbootLun;
    char uninterpreted_too[64];
};
static_assert(sizeof(BootLunRecord) == 107);
static_assert(offsetof(BootLunRecord, bootlun) == 35);
static_assert(offsetof(BootLunRecord, snapbootLun) == 39);

/** The record, and a NUL behind it so that the magic can be logged as a text. */
union RecordBuffer {
    char bytes[sizeof(BootLunRecord) + 1];
    BootLunRecord record;
};

}  // namespace

int read_from_partition(char* buffer, int count, int offset) {
    const UniqueFd partition(openFile(kPartition, O_RDWR));
    if (!partition.isOpen()) {
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
    const UniqueFd partition(openFile(kPartition, O_RDWR));
    if (!partition.isOpen()) {
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
    const int read = read_from_partition(buffer->bytes, sizeof(BootLunRecord), kRecordOffset);
    if (read < 0) {
        FBO_LOGE("[SNAPSHOT-HAL] read_from_partition fail");
        return read;
    }
    BootLunRecord& record = buffer->record;
    FBO_LOGD("[SNAPSHOT-HAL] magic_str %s, bootlun %d, snapbootLun %d", buffer->bytes,
             record.bootlun, record.snapbootLun);
    if (memcmp(record.magic_str, kMagic, sizeof(kMagic)) == 0) record.snapbootLun = record.bootlun;

    const int written = write_to_partition(buffer->bytes, sizeof(BootLunRecord), kRecordOffset);
    if (written < 0) {
        FBO_LOGE("[SNAPSHOT-HAL] write_to_partition fail");
    } else {
        FBO_LOGD("[SNAPSHOT-HAL] setBootlunInfo success");
    }
    return written;
}

}  // namespace vendor::nivora::hardware::fbo::implementation
