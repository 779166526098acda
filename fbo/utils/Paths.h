#pragma once

namespace vendor::nivora::hardware::fbo::implementation {

/*
 * What the library opens beside the nodes of a feature, which stand in the feature's folder.
 */

/** The drivers of UFS host controllers; a link to each controller's directory stands in them. */
constexpr char kQcomDriver[] = "/sys/bus/platform/drivers/ufshcd-qcom/";
constexpr char kMtkDriver[] = "/sys/bus/platform/drivers/ufshcd-mtk/";

/** The SCSI device's directory below the host controller. */
constexpr char kScsiDirectory[] = "/host0/target0:0:0/0:0:0:0/";

/** The maker of the UFS device. */
constexpr char kVendorNode[] = "/sys/class/block/sda/device/vendor";

/** The wear of the flash, as the device reports it. */
constexpr char kHealthReportNode[] = "/sys/class/qe_memory/qe_memory_device/ufshcd0/hr";

/** Points to the device-mapper volume of the user data. */
constexpr char kUserdataLink[] = "/dev/block/mapper/userdata";

/** On the file system of the user data. */
constexpr char kUserData[] = "/data/user/0";

constexpr char kDropCachesNode[] = "/proc/sys/vm/drop_caches";

namespace node {

/** In the SCSI device's directory: the INQUIRY data, binary. */
constexpr char kInquiry[] = "inquiry";

}  // namespace node

}  // namespace vendor::nivora::hardware::fbo::implementation
