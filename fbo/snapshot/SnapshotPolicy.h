#pragma once

#include <string>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Applies what was set from afar: the property "vendor.snapshot_control" switches the snapshot off
 * ("false"), on ("true"), or off for devices whose part number it contains as INQUIRY tells it,
 * blanks and all; "default" leaves it. Unless it is switched off, the limits are taken from
 * "vendor.snapshot_freespace.maxlimit" (20 if unset), "vendor.snapshot_freespace.minlimit" (8) and
 * "vendor.snapshot_devicefreeblock" (16, in units of 262144 device blocks). What the policy does
 * not set keeps its value.
 *
 * @throws std::invalid_argument, std::out_of_range if a limit is no number or too large a one;
 *     std::bad_optional_access as getFeatureDevicePath() does.
 */
void updateSnapshotCloudCtrlPolicy(bool& enable, int& minLimit, int& maxLimit,
                                   int& deviceFreeBlock);

/**
 * Tells the driver of a MICRON or KIOXIA device how many device blocks to keep free while a
 * snapshot exists, through "dropfreesize", if that is not so already. Other devices, and a failure
 * on the way, leave the node alone.
 *
 * @param vendor set to the device's vendor text, see getUFSVendor().
 * @throws std::invalid_argument, std::out_of_range if the node holds no number or too large a
 *     one; std::bad_optional_access as getFeatureDevicePath() does.
 */
void setSnapshotFreeBlockThr(std::string& vendor, int blocks);

}  // namespace vendor::nivora::hardware::fbo::implementation
