#pragma once

#include <cstddef>
#include <cstdint>

namespace vendor::nivora::hardware::fbo::implementation {

/** The partition that holds the boot-LUN record, and where it stands there. */
constexpr char kGsortPartition[] = "/dev/block/by-name/gsort";
constexpr int kBootLunRecordOffset = 9 * 1024 * 1024;
/** What a snapshot record begins with. */
constexpr char kSnapshotMagic[] = {'s', 'n', 'a', 'p', 's', 'h', 'o', 't'};

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

/**
 * Reads up to `count` bytes at `offset` of the partition /dev/block/by-name/gsort with one read(2),
 * and puts a NUL behind them: `buffer` must hold `count` + 1 bytes.
 *
 * @return bytes read, which can be fewer; -1, with a log line, if the partition cannot be opened,
 *     sought or read.
 */
int read_from_partition(char* buffer, int count, int offset);

/**
 * Writes `count` bytes at `offset` of the partition /dev/block/by-name/gsort with one write(2).
 *
 * @return bytes written, which can be fewer; -1, with a log line, if the partition cannot be
 *     opened, sought or written.
 */
int write_to_partition(char* buffer, int count, int offset);

/**
 * Records on the gsort partition that the snapshot protects the boot LUN in use: copies bootlun to
 * snapbootLun if the record there is a snapshot record. The record is written back either way; no
 * other byte of it changes.
 *
 * @return 107, the length of the record; less if the write was short; negative if the record
 *     cannot be read or written. A short read is not noticed: what was not read is written as 0.
 */
int setBootlunInfo();

}  // namespace vendor::nivora::hardware::fbo::implementation
