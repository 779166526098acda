#pragma once

#include <string>
#include <vector>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * A phone, or a UFS part in a phone, that must not use EUA. Each text is what the live value
 * begins with; an empty one fits every value.
 */
struct EuaPolicyRow {
    /** The property "ro.product.device". */
    std::string device;
    /** Vendor, part number and revision of the device's INQUIRY data. */
    std::string vendor;
    std::string part_number;
    std::string revision;
};

/** Looked through from the first row on. Built when the library is loaded. */
extern const std::vector<EuaPolicyRow> disableEuaPolicy;

/**
 * Whether a row of the table names this phone and UFS part. False also if the part cannot be
 * identified: the driver's answer then stands.
 *
 * @throws std::bad_optional_access as getFeatureDevicePath() does.
 */
bool checkDisableEuaPolicy();

}  // namespace vendor::nivora::hardware::fbo::implementation
