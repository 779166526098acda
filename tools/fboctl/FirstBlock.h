#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>

namespace fboctl {

/**
 * The block of 4 KiB of its unit at which the block device `device` begins: through device-mapper
 * volumes and partitions down to the disk. Nothing if that cannot be told, as for a volume of
 * several pieces, a file system of several devices, or one that lies in a file.
 */
std::optional<uint64_t> firstBlockOf(dev_t device);

/** Where a device-mapper volume lies: on the device "MAJOR:MINOR", from sector `start` on. */
struct MappedOnto {
    std::string device;
    uint64_t start;
};

/** What the one target of a volume says of that; nothing if it is not laid out one to one. */
std::optional<MappedOnto> parseTarget(const std::string& type, const std::string& parameters);

}  // namespace fboctl
