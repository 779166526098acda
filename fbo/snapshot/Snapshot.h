#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

namespace vendor::nivora::hardware::fbo::implementation {

/** The state of the device's snapshot. */
enum SNAPSHOT_STATUS : int32_t {
    SNAPSHOT_STATUS_IDLE = 0,
    SNAPSHOT_STATUS_INPROGRESS = 1,
    SNAPSHOT_STATUS_COMPLETE_BACKUP = 2,
    SNAPSHOT_STATUS_COMPLETE_RESTORE = 3,
    SNAPSHOT_STATUS_DROP_BY_HOST = 4,
    SNAPSHOT_STATUS_DROP_BY_DEVICE = 5,
    SNAPSHOT_STATUS_INTERNAL_ERROR = 6,
};

/** What the driver can be told to do with the snapshot. */
enum SNAPSHOT_CTRL : int32_t {
    SNAPSHOT_CTRL_STOP = 0,
    SNAPSHOT_CTRL_START = 1,
    SNAPSHOT_CTRL_RESTORE = 2,
    SNAPSHOT_CTRL_DROP = 3,
};

/** The driver's word for each state. Built when the library is loaded. */
extern std::unordered_map<std::string, SNAPSHOT_STATUS> snapshotStatusMap;

/** The driver's word for each command. Built when the library is loaded. */
extern std::unordered_map<SNAPSHOT_CTRL, std::string> snapshotCtrlMap;

}  // namespace vendor::nivora::hardware::fbo::implementation
