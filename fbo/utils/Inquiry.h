#pragma once

#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Who the UFS device says it is: fields of its SCSI standard INQUIRY data, byte for byte, with
 * the blanks that fill them up.
 */
struct standard_inquiry {
    /** Bytes 8 to 15. */
    std::string vendor_id;
    /** Bytes 16 to 31: the part number. */
    std::string product_id;
    /** Bytes 32 to 35. */
    std::string product_rev;
};

/**
 * Reads the device's INQUIRY data into `info`.
 *
 * @return 0; 5 if the data is shorter than 36 bytes; 10 if the node cannot be opened or no host
 *     controller is found. `info` is untouched unless the result is 0.
 * @throws std::bad_optional_access as getFeatureDevicePath() does.
 */
int getUfsInfo(standard_inquiry& info);

}  // namespace vendor::nivora::hardware::fbo::implementation
