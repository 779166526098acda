#pragma once

namespace vendor::nivora::hardware::fbo::implementation {

/** The FBO nodes' directory below the host controller. */
constexpr char kFboDirectory[] = "/ufsfbo/";

/** Urgent garbage collection of a volume, between them its device-mapper name. */
constexpr char kF2fsDirectory[] = "/sys/fs/f2fs/";
constexpr char kUrgentGcNode[] = "/gc_urgent";

/** The driver's FBO nodes, relative to their directory. */
namespace node {

constexpr char kSupport[] = "fbo_support";
constexpr char kIsUfs31[] = "is_ufs31";
constexpr char kMinLbaSize[] = "fbo_min_lrs";
constexpr char kMaxLbaCount[] = "fbo_max_lrc";

constexpr char kDebug[] = "debug";
constexpr char kExeLevel[] = "fbo_exe_level";
constexpr char kWholefileEnable[] = "fbo_wholefile_enable";

constexpr char kSendLrList[] = "fbo_send_lr_list";
constexpr char kFragLevel[] = "fbo_get_lr_frag_level";

// UFS 4.0: one control and one state for all operations.
constexpr char kOperationControl[] = "fbo_operation_control";
constexpr char kProgState[] = "fbo_prog_state";

// UFS 3.1: analysis and defragmentation apart.
constexpr char kFlcEnable[] = "fbs_flc_enable";
constexpr char kFlcOps[] = "fbs_flc_ops";
constexpr char kDefragEnable[] = "fbs_defrag_enable";
constexpr char kDefragOps[] = "fbs_defrag_ops";

constexpr char kErrorCount[] = "fbo_err_cnt";
constexpr char kRetryCount[] = "fbo_retry_cnt";

// FBO 2.0.
constexpr char kLinearMapState[] = "fbo2_linear_map_state";
constexpr char kLinearMappingStart[] = "fbo2_linear_mapping_start";
constexpr char kLinearMappingEnd[] = "fbo2_linear_mapping_end";

}  // namespace node

}  // namespace vendor::nivora::hardware::fbo::implementation
