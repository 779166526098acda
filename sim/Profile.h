#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

enum class Generation { kUfs40, kUfs31 };

/** The makers of flash, each with its own layout of the health report. */
enum class Maker { kSamsung, kSkHynix, kMicron, kKioxia, kWdc };

/** A UFS part as it comes from its maker. Add a line to profiles() to add a device. */
struct Profile {
    /** What it is called on a command line: generation and maker. */
    std::string name;
    Generation generation;
    Maker maker;
    /** The vendor as SCSI reports it, padded to eight characters when it is served. */
    std::string vendor;
    /** Ranges that the device takes in one list. */
    int max_ranges;
};

const std::vector<Profile>& profiles();

/** The profile called `name`. Throws std::invalid_argument if there is none. */
const Profile& findProfile(std::string_view name);

}  // namespace sim
