#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sim {

enum class Generation { kUfs40, kUfs31 };

/** A UFS part as it comes from its maker. Add a line to profiles() to add a device. */
struct Profile {
    /** What it is called on a command line: generation and maker. */
    std::string name;
    Generation generation;
    /**
     * The vendor as SCSI reports it, padded to 8 characters when it is served. The layout of the
     * health report and the manner of snapshots follow from it, by fbo/utils/Makers.h.
     */
    std::string vendor;
    /** Part number and revision in its INQUIRY data, padded to 16 and 4 characters there. */
    std::string product;
    std::string revision;
    /** Ranges that the device takes in one list. */
    int max_ranges;
    /** The phone that it is built into: the property ro.product.device. */
    std::string phone = "simphone";
};

const std::vector<Profile>& profiles();

/** The profile called `name`. Throws std::invalid_argument if there is none. */
const Profile& findProfile(std::string_view name);

}  // namespace sim
