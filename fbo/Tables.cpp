/*
 * What is built when the library is loaded, in this order, and taken down in reverse when the
 * process ends. The three stand in one file because only within a file is the order defined.
 */

#include "fbo/eua/Policy.h"
#include "fbo/snapshot/Snapshot.h"

namespace vendor::nivora::hardware::fbo::implementation {

const std::vector<EuaPolicyRow> disableEuaPolicy = {
        {"tarno", "SKhynix", "HN8T174EJKX075", "X202"},
        {"tarno", "MICRON", "MT256GBEAX4U40", "0203"},
        {"tarno", "MICRON", "MT001TAYAX8U40", "0203"},
        {"belvane", "", "", ""},
        {"corvi", "", "", ""},
        {"dravine", "SKhynix", "HN8T174EJKX075", "X202"},
        {"dravine", "SKhynix", "HN8T174EJKX075", "X204"},
        {"elmscote", "SKhynix", "HN8T174EJKX075", "X202"},
        {"elmscote", "KIOXIA", "THGJFLT2E46BATPB", "1100"},
        {"fenlow", "MICRON", "MT256GBEAX4U40", "0203"},
};

std::unordered_map<std::string, SNAPSHOT_STATUS> snapshotStatusMap = {
        {"idle", SNAPSHOT_STATUS_IDLE},
        {"inprogress", SNAPSHOT_STATUS_INPROGRESS},
        {"complete_backup", SNAPSHOT_STATUS_COMPLETE_BACKUP},
        {"complete_restore", SNAPSHOT_STATUS_COMPLETE_RESTORE},
        {"drop_by_host", SNAPSHOT_STATUS_DROP_BY_HOST},
        {"drop_by_device", SNAPSHOT_STATUS_DROP_BY_DEVICE},
        {"internal_error", SNAPSHOT_STATUS_INTERNAL_ERROR},
};

std::unordered_map<SNAPSHOT_CTRL, std::string> snapshotCtrlMap = {
        {SNAPSHOT_CTRL_STOP, "stop"},
        {SNAPSHOT_CTRL_START, "start"},
        {SNAPSHOT_CTRL_RESTORE, "restore"},
        {SNAPSHOT_CTRL_DROP, "drop"},
};

}  // namespace vendor::nivora::hardware::fbo::implementation
