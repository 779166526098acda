#pragma once

namespace vendor::nivora::hardware::fbo::implementation {

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
