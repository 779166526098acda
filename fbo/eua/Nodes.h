#pragma once

namespace vendor::nivora::hardware::fbo::implementation {

/** The EUA nodes' directory below the host controller. */
constexpr char kEuaDirectory[] = "/ufseua/";

/** The SCSI device's directory below the host controller. */
constexpr char kScsiDirectory[] = "/host0/target0:0:0/0:0:0:0/";

namespace node {

constexpr char kEuaSupport[] = "eua_support";
constexpr char kEuaSupportSize[] = "eua_support_size";
constexpr char kEuaUnmap[] = "eua_file_lba_unmap";

/** In the SCSI device's directory: the INQUIRY data, binary. */
constexpr char kInquiry[] = "inquiry";

}  // namespace node

}  // namespace vendor::nivora::hardware::fbo::implementation
