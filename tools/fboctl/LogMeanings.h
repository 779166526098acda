#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fboctl {

/** What a line of the service's log does to what is known of a run, or of another call. */
enum class Role {
    kDetail,
    // Of a run. Its limit is told first; a run that is refused has no other line.
    kLimit,
    kLimitLarger,
    kRefused,
    kZone,
    kZoneFailed,
    kRetry,
    kReport,
    kOptimised,
    kRawLevels,
    kStop,
    kFailCount,
    kRetryCount,
    kWorse,
    kMappingFailed,
    /** There is no linear mapping, unless what the line tells is 1. */
    kNoMapping,
    // Of the other calls: the first lines, an item, the last line, and the only one.
    kBegin,
    kItem,
    kEnd,
    kWhole,
    // Of the service: the maker of its flash, its start, and why it will die.
    kVendor,
    kStart,
    kFatal,
};

/** A line of the service's log. A row without a priority is the heading of those that follow. */
struct LogMeaning {
    /** The functions that log it, with ", " between them. */
    const char* functions;
    /** As logcat's letter. */
    char priority = '\0';
    /** What is printed, as printf() takes it. */
    const char* format = "";
    /** What it means, and what to look at; in Markdown. */
    const char* meaning = "";
    Role role = Role::kDetail;
    /** What a zone or a call has failed for whose last word it is; null if it is none. */
    const char* cause = nullptr;
};

/** What each line means. The tables of docs/integration.md are printed from it. */
constexpr LogMeaning kLogMeanings[] = {
        // clang-format off
        {"Controller, files and vendor"},
        {"getFeatureDevicePath", 'E', "[FBO-HAL] Cannot open %s, not an UFS device?",
         "The driver's directory is missing or denied: wrong `ro.hardware`, another driver name, "
         "SELinux, or no UFS. Logged once; from then on every call that looks for the controller "
         "ends the service.", Role::kFatal, "no controller is found"},
        {"getFeatureDevicePath", 'E',
         "[FBO-HAL] Cannot find UFS platform device, not an UFS device?",
         "The driver is there, but is bound to no device with \"ufs\" in its name. Same "
         "consequence.", Role::kFatal, "no controller is found"},
        {"readFileToString", 'E', "Open %s Fail",
         "One of the linear mapping's three nodes cannot be opened. For `fbo2_linear_map_state` "
         "it means: no linear mapping here.", Role::kNoMapping},
        {"getUFSVendor", 'E', "[FBO-HAL] UFS Vendor node open fail",
         "`/sys/class/block/sda/device/vendor` is missing or denied. Wear stays unknown, MICRON "
         "and KIOXIA are taken for others."},
        {"getUFSVendor", 'E', "[FBO-HAL] UFS Vendor node read fail",
         "The node opens, but reading it fails."},
        {"delay_work_timer", 'I', "[FBO-HAL] start time: %ld, delay time is %d",
         "A busy wait begins. No method uses it."},
        {"delay_work_timer", 'I', "[FBO-HAL] current time is %ld.", "It has ended, at this time."},
        {"delay_work_timer", 'I', "[FBO-HAL] delay work exit", "Follows the line before."},
        {"Capability and wear"},
        {"FBO_isSupport", 'E', "[FBO-HAL] Failed to open fbo_support node.",
         "The driver has no FBO, or the node is denied. Answer: false."},
        {"FBO_isSupport", 'E', "[FBO-HAL] Read fbo_support node failed or device does not fbo.",
         "The node does not begin with `1`. Answer: false."},
        {"FBO_isSupport, EUA_GetFreeSpaceAPECycle", 'E', "[FBO-HAL] get ufs pecycle info fail",
         "The wear cannot be read; the line before tells why. FBO is not refused for it; the wear "
         "report is empty."},
        {"FBO_isSupport", 'D', "[FBO-HAL] FBO support.",
         "Answer: true. No such line after a readable wear: the flash has 2400 cycles or more."},
        {"FBO_isUFS31", 'E', "[FBO-HAL] open is_ufs31 node fail",
         "The node is missing or denied. The device is taken for UFS 4.0."},
        {"FBO_isUFS31", 'D', "[FBO-HAL] the ufs is 3.1 version", "The node says 1."},
        {"FBO_Get_MinLBASize", 'E', "[FBO-HAL] Open fbo_min_lrs file failure",
         "The node is missing. No method asks for it."},
        {"FBO_Get_MaxLBACount", 'E', "[FBO-HAL] Open fbo_max_lrc file failure",
         "The node is missing or denied; the trigger answers `Fbo:0:0`."},
        {"getUFSPEcycleALevelToNum", 'D', "[FBO-HAL] vendor is sk, the tbw != 0",
         "SKhynix flash that counts the bytes written; its cycles are taken from the first of the "
         "two places."},
        {"getUFSPEcycleALevelToNum", 'E', "[FBO-HAL] get ufs vendor fail",
         "The vendor text, and so the wear, cannot be read; the line before tells why."},
        {"getUFSPEcycleALevelToNum", 'E', "[FBO-HAL] ufs hr node open fail",
         "The health report is missing or denied."},
        {"getUFSPEcycleALevelToNum", 'E', "[FBO-HAL] read hr failed",
         "The device does not give its health report."},
        {"getUFSPEcycleALevelToNum", 'E', "[FBO-HAL] vendor not supported\n",
         "The vendor text names none of the five makers. Wear stays unknown, levels count as they "
         "are."},
        {"getUFSPEcycleALevelToNum", 'I', "[FBO-HAL] ufs vendor: %s pe_cycle: %d",
         "Maker and cycles as read; -2: unknown. Implausible cycles: the report is short or of "
         "another layout.", Role::kVendor},
        {"Trigger"},
        {"FBO_trigger", 'E', "[FBO-HAL] lba null.",
         "The request has fewer than two characters. Answer: `Fbo:0:0`.", Role::kRefused,
         "the request is empty"},
        {"FBO_trigger", 'E', "[FBO-HAL] read fbo max lrc fail.",
         "`fbo_max_lrc` is missing or denied. Answer: `Fbo:0:0`.", Role::kRefused,
         "the range limit cannot be read"},
        {"FBO_trigger", 'I', "[FBO-HAL] fbo_max_lrc is %d.",
         "Ranges that the device takes at once. 0 or less: the whole request becomes one zone; "
         "the driver is wrong.", Role::kLimit},
        {"FBO_trigger", 'I', "[FBO-HAL] fbo_max_lrc is larger", "More than 127; 127 is used.",
         Role::kLimitLarger},
        {"FBO_trigger", 'E', "get ufs frag level to MB info fail",
         "The wear and the level table cannot be read. The run goes on with raw levels."},
        {"FBO_trigger", 'I', "[FBO-HAL] enable debug.",
         "First zone: `debug` is about to be written."},
        {"FBO_trigger", 'E', "[FBO-HAL] enable debug open fail.",
         "`debug` is missing or denied. The run goes on."},
        {"FBO_trigger", 'I', "[FBO-HAL] set exe_level.",
         "`fbo_exe_level` is about to be written. It is not logged if that fails."},
        {"FBO_trigger", 'I', "[FBO-HAL] set fbo_wholefile_enable.",
         "`fbo_wholefile_enable` is about to be opened. Its value follows when the first zone has "
         "ended."},
        {"FBO_trigger", 'I', "[FBO-HAL] lba is: %s .", "A zone begins, with these ranges.",
         Role::kZone},
        {"FBO_trigger", 'D', "[FBO-HAL] is 3.1 ufs", "It goes through the UFS 3.1 engine."},
        {"FBO_trigger", 'D', "[FBO-HAL] is 4.0 ufs",
         "It goes through the UFS 4.0 engine. On a 3.1 device: `is_ufs31` is wrong or "
         "unreadable."},
        {"FBO_trigger", 'E', "[FBO-HAL] zone[%d]: %s fail",
         "This zone (counted from 0) failed; the engine's last line tells why. The next zone "
         "follows.", Role::kZoneFailed},
        {"FBO_trigger", 'E', "[FBO-HAL] LevelToNum is empty, use frag level.",
         "No table for this maker: the figures are raw levels times 256.", Role::kRawLevels},
        {"FBO_trigger, UFS31_FBO_Imp, UFS40_FBO_Imp", 'D', "[FBO-HAL] hal stop.",
         "A stop takes effect. Trigger: before the next zone. UFS 4.0: the device is idle, the "
         "zone ends. UFS 3.1: seen while waiting for an analysis; the device is cleared next.",
         Role::kStop, "it was stopped"},
        {"FBO_trigger", 'D', "[FBO-HAL] cmd fail times is %d.",
         "Failures of the run, and of stopped runs before it. More than a few: look at the "
         "engine's errors.", Role::kFailCount},
        {"FBO_trigger", 'D', "[FBO-HAL] cmd retry times is %d.",
         "Repeated commands and repeated looks; grows with every look at a working device, so "
         "hundreds are normal.", Role::kRetryCount},
        {"FBO_trigger", 'E', "[FBO-HAL] the level becomes larger after defrag ",
         "The sum after is above the sum before; the answer shows the sum before twice. Compare "
         "the reports of the two passes of each zone.", Role::kWorse,
         "more fragmented than before"},
        {"FBO_trigger", 'D', "[FBO-HAL] FBO2.0 Linear Mapping Fail",
         "The mapping did not end well; the line before tells why. The answer stays.",
         Role::kMappingFailed},
        {"Clear and counters"},
        {"FBO_Clear", 'D', "[FBO-HAL] ops %s is %s!.", "State node and what it says."},
        {"FBO_Clear, record_cmd_fail", 'E', "[FBO-HAL] %s open fail!.",
         "The node is missing or denied. In a clear the zone fails; a counter is not reported.",
         Role::kDetail, "a node is missing or denied"},
        {"FBO_Clear", 'D', "[FBO-HAL] progress state is already idle.", "Nothing to clear."},
        {"FBO_Clear", 'D', "[FBO-HAL] clear ops",
         "The device is not idle; 0 is written, again every 30 seconds."},
        {"FBO_Clear", 'E', "[FBO-HAL] flc ops abnormal, exit",
         "Not idle after 5 minutes of clear commands. The device hangs in an operation, or the "
         "driver refuses the 0.", Role::kDetail, "the device does not become idle"},
        {"record_cmd_fail", 'D', "fail recode success", "A counter was handed to the driver."},
        {"Engines"},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'I', "[FBO-HAL] check flc ops.",
         "A pass begins. Two in a zone are normal; more: a retry, a stop or a failed "
         "defragmentation."},
        {"UFS31_FBO_Imp", 'I', "[FBO-HAL] check defrag ops.",
         "The analysis is idle; the defragmentation is brought to idle next."},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'D', "[FBO-HAL] hal stop",
         "UFS 4.0: a stop was seen while waiting; the device is cleared next. UFS 3.1: the same "
         "in a defragmentation, or the zone ends here.", Role::kStop, "it was stopped"},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'I', "[FBO-HAL] write buffer",
         "The list is about to be sent."},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'I', "[FBO-HAL] write buff lba is: %s.", "The list."},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'E', "[FBO-HAL] Open file failure",
         "The node of the step before this line is missing or denied: after `write buff lba is` "
         "the state node, after `enable analysis` or `flc enable` the control node, else the list "
         "node. The zone fails.", Role::kDetail, "a node is missing or denied"},
        {"UFS31_FBO_Imp", 'E', "[FBO-HAL] write buffer fail",
         "The list was not accepted in 10 repetitions, 5 minutes. Bad ranges, or `fbs_flc_ops` "
         "does not go to 1. The zone fails.", Role::kDetail, "the list is not accepted"},
        {"UFS31_FBO_Imp", 'D', "[FBO-HAL] write buffer success", "The list is accepted."},
        {"UFS40_FBO_Imp", 'I', "[FBO-HAL] enable analysis",
         "The analysis is about to be started."},
        {"UFS31_FBO_Imp", 'I', "[FBO-HAL] flc enable", "The analysis is about to be started."},
        {"UFS40_FBO_Imp", 'I', "[FBO-HAL] fbo analysis on going.",
         "The analysis runs; a look every 6 seconds follows."},
        {"UFS40_FBO_Imp", 'I', "[FBO-HAL] flc ops is: %s.", "The state at such a look."},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'D', "[FBO-HAL] flc ops is: %s.",
         "The unexpected state right after the start; UFS 3.1: also the state at each look."},
        {"UFS40_FBO_Imp", 'I', "[FBO-HAL] fbo complete analysis.",
         "The analysis was complete at once."},
        {"UFS31_FBO_Imp", 'I', "[FBO-HAL] flc enable success.", "The analysis is complete."},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'E', "[FBO-HAL] flc enable abnormal, try",
         "The analysis did not start; the zone's one retry is spent on it. The driver refused the "
         "start, or showed the new state too late.", Role::kRetry},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'E', "[FBO-HAL] flc enable abnormal, exit",
         "The analysis did not start, with no retry left, or (UFS 4.0) it ended in another state "
         "than 2 or ran for more than 20 minutes. The zone fails.", Role::kDetail,
         "the analysis failed"},
        {"UFS31_FBO_Imp", 'E', "[FBO-HAL] flc enable fail.",
         "The analysis ended in another state than 3, or ran for more than 20 minutes. The zone "
         "fails.", Role::kDetail, "the analysis failed"},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'I', "[FBO-HAL] read buff.",
         "The report is about to be read."},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'E', "[FBO-HAL] read buff fail, retry",
         "The report is missing or shorter than 29 characters; the zone's one retry is spent on "
         "it.", Role::kRetry},
        {"UFS40_FBO_Imp, UFS31_FBO_Imp", 'E', "[FBO-HAL] read buff fail",
         "The report is missing or too short, and no retry is left. The zone fails.",
         Role::kDetail, "the report is missing or short"},
        {"UFS40_FBO_Imp", 'D', "[FBO-HAL] read buff success, the level is \n: %s.",
         "The report; its 11th character is the level.", Role::kReport},
        {"UFS31_FBO_Imp", 'D', "[FBO-HAL] read buff success.", "The report is long enough."},
        {"UFS31_FBO_Imp", 'I', "[FBO-HAL] read buff success, the level is: %s.",
         "The report; its 11th character is the level.", Role::kReport},
        {"UFS40_FBO_Imp", 'I', "[FBO-HAL] enable optimization.",
         "The optimisation is about to be started. If this is the zone's last line, the device "
         "ended it in a state that is neither success nor failure, or did not end it in 20 "
         "minutes.", Role::kDetail, "the optimisation did not end well"},
        {"UFS31_FBO_Imp", 'I', "[FBO-HAL] enable defrag.",
         "The defragmentation is about to be started. If this is the zone's last line, the device "
         "ended it in another state than 0, or did not end it in 20 minutes.", Role::kDetail,
         "the optimisation did not end well"},
        {"UFS40_FBO_Imp", 'E', "[FBO-HAL] fbo enable optimization fail.",
         "State 255 right after the start. The zone ends with its level after counted as 0.",
         Role::kDetail, "the optimisation failed"},
        {"UFS31_FBO_Imp", 'E', "[FBO-HAL] fbs_defrag_enable fail.",
         "State 255 right after the start. The zone starts over; if the line comes again and "
         "again, only a stop ends it.", Role::kRetry, "the optimisation failed"},
        {"UFS40_FBO_Imp", 'D', "[FBO-HAL] fbo_defrag_enable success.",
         "Optimised; the second pass measures it.", Role::kOptimised},
        {"UFS31_FBO_Imp", 'D', "[FBO-HAL] fbs_defrag_enable success.",
         "Defragmented; the second pass measures it.", Role::kOptimised},
        {"Linear mapping"},
        {"FBO2_Support_Linear_Mapping", 'I', "[FBO2-HAL]LinearMappingSupNode is %s",
         "1: it is offered. Anything else: it is left out.", Role::kNoMapping},
        {"FBO2_Linear_Mapping", 'E', "[FBO2-HAL]Open fbo_send_lr_list_node Fail",
         "The node is missing or denied.", Role::kDetail, "a node is missing or denied"},
        {"FBO2_Linear_Mapping", 'D', "[FBO2-HAL]Write buff lba is: %s.",
         "The range, start and end as the driver named them."},
        {"FBO2_Linear_Mapping", 'I', "[FBO2-HAL]Enable Linear Mapping",
         "The mapping is about to be started."},
        {"FBO2_Linear_Mapping", 'E', "[FBO2-HAL]Open fbo_operation_control_node Fail",
         "The node is missing or denied.", Role::kDetail, "a node is missing or denied"},
        {"FBO2_Linear_Mapping", 'E', "[FBO2-HAL]Open fbo_prog_state_node Fail",
         "The node is missing or denied.", Role::kDetail, "a node is missing or denied"},
        {"FBO2_Linear_Mapping", 'I', "[FBO2-HAL]is on going.",
         "The mapping runs; a look every 3 seconds follows."},
        {"FBO2_Linear_Mapping", 'I', "[FBO2-HAL]state is: %s.", "The state at such a look."},
        {"FBO2_Linear_Mapping", 'E', "[FBO2-HAL]Check State After Linear Mapping abnormal, exit",
         "The mapping ended in another state than 5, or ran for more than 10 minutes.",
         Role::kDetail, "the linear mapping failed"},
        {"Rules and urgent garbage collection"},
        {"FBO_VersionCtrl", 'I', "[FBO-HAL] FBO fbo_version_ctrl is %s.", "The client's rules."},
        {"FBO_VersionCtrl", 'E', "[FBO-HAL] FBO current rules version is %s not support.",
         "They are of another version than 1.0. Answer: false."},
        {"FBO_VersionCtrl", 'D', "[FBO-HAL] FBO current rules version is %s support.",
         "They are of version 1.0."},
        {"FBO_VersionCtrl", 'I', "[FBO-HAL] FBO fbo_version_ctrl %s.", "An item is looked at."},
        {"FBO_VersionCtrl", 'I', "[FBO-HAL] FBO on_fbo_version %s.",
         "It contains `ON`; this is its version rule. The last such line before the answer true "
         "is the one that matched."},
        {"get_userdata_mapper", 'E', "[FBO-HAL] readlink fail.",
         "`/dev/block/mapper/userdata` is missing, denied or no link."},
        {"get_userdata_mapper", 'I', "[FBO-HAL] userdata: %s.", "Where it points."},
        {"FBO_GCADisCard", 'I', "[FBO-HAL] the gc path: %s",
         "The node that will be written. Two slashes in a row: the link could not be read."},
        {"FBO_GCADisCard", 'E', "[FBO-HAL] gc node open fail",
         "The node is missing (userdata is not f2fs) or denied. Answer: false."},
        {"FBO_GCADisCard", 'D', "[FBO-HAL] trigger GC",
         "The request is written. Answer: true, whatever f2fs says."},
        {"EUA"},
        {"EUA_isSupport", 'E', "[EUA-HAL] Open eua_support file failure",
         "The driver has no EUA, or the node is denied. Answer: false."},
        {"EUA_isSupport", 'I', "[EUA-HAL] eua_support is %s",
         "What the driver says. If nothing follows from a service that then dies: no number."},
        {"EUA_isSupport", 'D', "[EUA-HAL] disable eua policy match, set eua support to false.",
         "Phone and part are excluded; the line before names the row."},
        {"EUA_SupportSize", 'E', "[EUA-HAL] Open eua_support_size file failure",
         "The node is missing or denied. Answer: 0."},
        {"EUA_SupportSize", 'I', "[EUA-HAL] eua_support_size is %s", "What the driver says."},
        {"EUA_SupportSize", 'D', "[EUA-HAL] disable eua policy match, set support size to 0.",
         "Phone and part are excluded."},
        {"EUA_SendEraseCmd", 'E', "[EUA-HAL] open eua_file_lba_unmap fail",
         "The node is missing or denied. Answer: false.", Role::kWhole,
         "a node is missing or denied"},
        {"EUA_SendEraseCmd", 'D', "[EUA-HAL] send erase lbaList %s ", "The whole list.",
         Role::kBegin},
        {"EUA_SendEraseCmd", 'D', "[EUA-HAL] send erase lba %s ",
         "An item is about to be written. The items after a refused one are logged too, though "
         "they do not reach the driver.", Role::kItem},
        {"EUA_GetFreeSpaceAPECycle", 'D', "[EUA-HAL] eua_support is %d ",
         "The answer of `EUA_isSupport`."},
        {"EUA_GetFreeSpaceAPECycle", 'D', "[EUA-HAL] GetFreeSpaceAPECycle is %s ",
         "The report; empty: see the lines before."},
        {"getUfsInfo", 'E', "[EUA-HAL] Open inquiryNode file failure",
         "`inquiry` is missing or denied. The part cannot be identified."},
        {"getUfsInfo", 'D', "[EUA-HAL] inquiryResult size %d",
         "Its data has fewer than 36 bytes."},
        {"getUfsInfo", 'D', "[EUA-HAL] vendor_id %s, product_id %s, product_rev %s",
         "The identity, blanks included."},
        {"checkDisableEuaPolicy", 'E', "[EUA-HAL] getUfsInfo fail.",
         "Nothing can be excluded; the driver's answer stands."},
        {"checkDisableEuaPolicy", 'D',
         "[EUA-HAL] Check Policy match (%d), device (%s), vendor (%s), P/N (%s), Rev (%s)",
         "The row of the table that matched, counted from 0. Empty fields match everything."},
        {"Snapshots"},
        {"SnapShot_startBackup", 'D', "[SNAPSHOT-HAL] snapshot is cloud disable, do not backup.",
         "Switched off; the lines before tell by what. Answer: false.", Role::kEnd,
         "snapshots are switched off"},
        {"SnapShot_startBackup", 'E', "[SNAPSHOT-HAL] drop_caches fail, do not backup.",
         "See `drop_caches`. Answer: false.", Role::kEnd, "the page cache cannot be dropped"},
        {"SnapShot_startBackup", 'E',
         "[SNAPSHOT-HAL] setBootlunInfo fail, do not backup and drop backup.",
         "The boot-LUN record cannot be read or written. A snapshot that is there is dropped. "
         "Answer: false.", Role::kEnd, "the boot-LUN record failed"},
        {"SnapShot_startBackup, SnapShot_startDrop", 'E', "[SNAPSHOT-HAL] Open ctrl file failure",
         "`ctrl` is missing or denied. Answer: false.", Role::kEnd, "a node is missing or denied"},
        {"SnapShot_startBackup, SnapShot_startDrop", 'D', "[SNAPSHOT-HAL] snapshotStatus is %d.",
         "Backup: the state right after the start. Drop: the state before it."},
        {"SnapShot_startBackup, SnapShot_startDrop", 'I', "[SNAPSHOT-HAL] snapshotStatus is %d.",
         "The state before another second of waiting. Thirty of them: the limit."},
        {"SnapShot_startBackup", 'D', "[SNAPSHOT-HAL] snapshotStatus is %d, tryCount is %d",
         "The state after the wait, and its seconds."},
        {"SnapShot_startBackup", 'D', "[SNAPSHOT-HAL] backup success",
         "Answer: true. Without it: false. State 0 and 0 tries: the device was still idle and is "
         "not one that is waited for.", Role::kEnd},
        {"SnapShot_startDrop", 'D',
         "[SNAPSHOT-HAL] snapshot status is not complete_backup, do not drop",
         "Nothing to drop. Answer: true.", Role::kEnd},
        {"SnapShot_startDrop", 'D', "[SNAPSHOT-HAL] snapshot drop succcess.", "Answer: true.",
         Role::kEnd},
        {"SnapShot_startDrop", 'E', "[SNAPSHOT-HAL] snapshot drop failed.",
         "The state is neither idle nor drop_by_host; `status is` before it names it. Answer: "
         "false.", Role::kEnd, "the snapshot was not dropped"},
        {"SnapShot_getStatus", 'E', "[SNAPSHOT-HAL] Open status file failure",
         "`status` is missing or denied. Answer: 0."},
        {"SnapShot_getStatus", 'I', "[SNAPSHOT-HAL] status is %s",
         "The driver's word. One that is none of the seven counts as idle."},
        {"setBootlunInfo", 'E', "[SNAPSHOT-HAL] malloc fail", "No memory."},
        {"setBootlunInfo", 'E', "[SNAPSHOT-HAL] read_from_partition fail", "See the line before."},
        {"setBootlunInfo", 'D', "[SNAPSHOT-HAL] magic_str %s, bootlun %d, snapbootLun %d",
         "The record as it was. If the magic does not begin with `snapshot`, no boot LUN is "
         "protected."},
        {"setBootlunInfo", 'E', "[SNAPSHOT-HAL] write_to_partition fail", "See the line before."},
        {"setBootlunInfo", 'D', "[SNAPSHOT-HAL] setBootlunInfo success", "The record is written."},
        {"updateSnapshotCloudCtrlPolicy", 'D', "[SNAPSHOT-HAL] get snapshot_control property %s",
         "The control word, if it is not the default.", Role::kBegin},
        {"updateSnapshotCloudCtrlPolicy", 'D', "[SNAPSHOT-HAL] all pn disable snapshot",
         "It contains `false`: off for every part.", Role::kBegin},
        {"updateSnapshotCloudCtrlPolicy", 'D', "[SNAPSHOT-HAL] cloud enable snapshot",
         "It contains `true`: on.", Role::kBegin},
        {"updateSnapshotCloudCtrlPolicy", 'E', "[SNAPSHOT-HAL] getUfsInfo fail.",
         "It may name this part, but the part cannot be identified: off.", Role::kBegin},
        {"updateSnapshotCloudCtrlPolicy", 'D', "[SNAPSHOT-HAL] pn match, disable snapshot",
         "It names this part: off.", Role::kBegin},
        {"updateSnapshotCloudCtrlPolicy", 'D',
         "[SNAPSHOT-HAL] snapshot_freespace minlimit %d, maxlimit %d, devicefreeblock %d",
         "The limits. If the service dies before this line, one of the properties is no number.",
         Role::kBegin},
        {"setSnapshotFreeBlockThr", 'E', "[SNAPSHOT-HAL] get ufs vendor fail",
         "No maker: the threshold is left out, the backup goes on, and a device that stays idle "
         "is not waited for."},
        {"setSnapshotFreeBlockThr", 'I', "[SNAPSHOT-HAL] m/k set snapshot free block thr",
         "MICRON or KIOXIA: the threshold is looked at. If the service dies here, `dropfreesize` "
         "holds no number."},
        {"setSnapshotFreeBlockThr", 'E', "[SNAPSHOT-HAL] Open dropfreesize file failure",
         "The node is missing or denied, for reading or writing. The backup goes on."},
        {"Drop event"},
        {"UEventWorker", 'E', "[SNAPSHOT-HAL] Creating Memory uevent worker!",
         "The worker starts. Not a failure, whatever its priority.", Role::kStart},
        {"UEventWorker", 'E', "[SNAPSHOT-HAL] uevent_open_socket failed",
         "Denied, or out of descriptors. The service runs on without drop events until it is "
         "restarted, as after the next three lines.", Role::kWhole, "drop events are not heard"},
        {"UEventWorker", 'E', "[SNAPSHOT-HAL] epoll_create failed",
         "Out of descriptors or memory.", Role::kWhole, "drop events are not heard"},
        {"UEventWorker", 'E', "[SNAPSHOT-HAL] epoll_ctl failed, errno = %d",
         "The socket cannot be waited for.", Role::kWhole, "drop events are not heard"},
        {"UEventWorker", 'E', "[SNAPSHOT-HAL] epoll_wait failed, errno = %d",
         "The wait failed; the worker has ended.", Role::kWhole, "drop events are not heard"},
        {"UEventEvent", 'D', "[SNAPSHOT-HAL] Snapshot drop uevent received: %s",
         "The driver wants the snapshot dropped.", Role::kBegin},
        {"UEventEvent", 'D', "[SNAPSHOT-HAL] Snapshot drop uevent has been successfully executed "
         "within 3s, so by pass.", "Less than 4 seconds after a successful drop; nothing is done.",
         Role::kEnd},
        {"UEventEvent", 'D', "[SNAPSHOT-HAL] drop snapshot success in uevent",
         "Dropped, or there was nothing to drop.", Role::kEnd},
        {"UEventEvent", 'E', "[SNAPSHOT-HAL] drop snapshot fail in uevent",
         "The lines of `SnapShot_startDrop` before it tell why. The next event is acted on at "
         "once.", Role::kEnd, "the snapshot was not dropped"},
        {"Page cache, free space and partition"},
        {"drop_caches", 'E', "[UTILS-HAL] drop_caches fail",
         "`/proc/sys/vm/drop_caches` is denied, or the service is not root."},
        {"getUserFreeSpaceInfo", 'E', "[UTILS-HAL] getUserSpaceInfo fail.",
         "`/data/user/0` cannot be asked. No method uses it."},
        {"getUserFreeSpaceInfo", 'I',
         "[UTILS-HAL] freeSizeG:%d, totalSizeG:%d, ufssize:%d, ratio:%d",
         "GiB free and in all, nominal size, percent free."},
        {"read_from_partition", 'E', "[UTILS-HAL] open ddr_gsort_partition fail %s\n",
         "The gsort partition cannot be opened for reading and writing, and why."},
        {"read_from_partition, write_to_partition", 'E', "[UTILS-HAL] lseek fail\n",
         "It cannot be positioned."},
        {"read_from_partition", 'E', "[UTILS-HAL] read ddr_gsort_partition fail\n",
         "It cannot be read."},
        {"write_to_partition", 'E', "[UTILS-HAL] open ddr_gsort_partition fail, %s\n",
         "It cannot be opened for the write, and why."},
        {"write_to_partition", 'E', "[UTILS-HAL] write ddr_gsort_partition fail\n",
         "It cannot be written."},
        // clang-format on
};

/** A line of the log that has been understood. */
struct KnownLine {
    /** The one that speaks. */
    std::string_view function;
    const LogMeaning* meaning;
    /** The first value that it tells, as far as it has not been cut off. */
    std::string_view value;
};

/**
 * Finds what a line, or the first line of a text, means. A line may have lost its end.
 *
 * @param priority tells alike lines apart; 0 if it is not known.
 */
std::optional<KnownLine> findMeaning(std::string_view text, char priority = '\0');

/** The tables of what each line means, in Markdown. */
std::string describeLog();

}  // namespace fboctl
