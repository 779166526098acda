#include "fbo/defrag/Trigger.h"

#include <cstdint>
#include <string>
#include <string_view>

#include "fbo/Fbo.h"
#include "fbo/Globals.h"
#include "fbo/defrag/Capability.h"
#include "fbo/defrag/FboNodes.h"
#include "fbo/defrag/LinearMapping.h"
#include "fbo/defrag/Report.h"
#include "fbo/defrag/Result.h"
#include "fbo/defrag/Ufs31.h"
#include "fbo/defrag/Ufs40.h"
#include "fbo/defrag/Zones.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Utils.h"
#include "fbo/utils/Wear.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

constexpr char kName[] = "FBO_trigger";

/** The sum of the fragmentation over the zones of a run; wraps around at 32 bits. */
struct Figures {
    int32_t before = 0;
    int32_t after = 0;
};

int32_t addScaled(int32_t sum, int32_t number) {
    return static_cast<int32_t>(static_cast<uint32_t>(sum) +
                                static_cast<uint32_t>(number) * kFigureScale);
}

/** Reads how many ranges a zone may hold. False if the node cannot be opened. */
bool readMaxRanges(int& fbo_max_lrc) {
    if (FBO_Get_MaxLBACount(fbo_max_lrc) != kDone) {
        FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] read fbo max lrc fail.");
        return false;
    }
    FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] fbo_max_lrc is %d.", fbo_max_lrc);
    if (fbo_max_lrc > kMaxRanges) {
        FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] fbo_max_lrc is larger");
        fbo_max_lrc = kMaxRanges;
    }
    return true;
}

/**
 * Readies the driver for a run. The log lines name the node that comes next, and only "debug" is
 * said to be missing. `output` is left open with the last value in it: the driver gets that one
 * when the first zone is done.
 */
void prepareDriver(const std::string& directory, NodeWriter& output) {
    FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] enable debug.");
    if (!output.open(directory + node::kDebug)) {
        FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] enable debug open fail.");
    }
    output.put("1");
    FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] set exe_level.");
    output.open(directory + node::kExeLevel);
    output.put("0");
    FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] set fbo_wholefile_enable.");
    output.open(directory + node::kWholefileEnable);
    output.put("1");
}

/** Runs a zone through the engine of the device's generation. */
int runEngine(const std::string& zone, int32_t& level_before, int32_t& level_after) {
    if (FBO_isUFS31()) {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] is 3.1 ufs");
        return UFS31_FBO_Imp(zone, level_before, level_after);
    }
    FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] is 4.0 ufs");
    return UFS40_FBO_Imp(zone, level_before, level_after);
}

void runZone(Fbo& service, const std::string& directory, int index, const std::string& zone,
             Figures& figures) {
    int32_t before = 0;
    int32_t after = 0;
    NodeWriter output;
    if (index == 0) prepareDriver(directory, output);

    FBO_LOG(ANDROID_LOG_INFO, kName, "[FBO-HAL] lba is: %s .", zone.c_str());
    if (runEngine(zone, before, after) != kDone) {
        // The levels count all the same: 0 where the engine did not get that far.
        FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] zone[%d]: %s fail", index, zone.c_str());
    }
    if (!mapLevels(service, before, after)) {
        FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] LevelToNum is empty, use frag level.");
    }
    output.close();
    figures.before = addScaled(figures.before, before);
    figures.after = addScaled(figures.after, after);
}

/** Reports the failures and retries of the run to the driver, and starts counting anew. */
void reportCounters() {
    FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] cmd fail times is %d.", cmd_fail_count);
    FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] cmd retry times is %d.", cmd_retry_count);
    record_cmd_fail(node::kErrorCount, cmd_fail_count);
    record_cmd_fail(node::kRetryCount, cmd_retry_count);
    cmd_fail_count = 0;
    cmd_retry_count = 0;
}

void mapLinearly() {
    std::string start;
    std::string end;
    if (FBO2_Support_Linear_Mapping(start, end) && FBO2_Linear_Mapping(start, end) != kDone) {
        FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] FBO2.0 Linear Mapping Fail");
    }
}

/** Runs all zones. False if a stop was requested. */
bool runZones(Fbo& service, ZoneCutter zones, Figures& figures) {
    int index = 0;
    while (const auto zone = zones.next()) {
        if (hal_status_flag != 0) {
            FBO_LOG(ANDROID_LOG_DEBUG, kName, "[FBO-HAL] hal stop.");
            return false;
        }
        const auto directory = getFeatureDevicePath(kFboDirectory);
        if (directory) runZone(service, *directory, index, std::string(*zone), figures);
        ++index;
    }
    return true;
}

Figures defragment(Fbo& service, std::string_view request) {
    Figures figures;
    if (request.size() <= 1) {
        FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] lba null.");
        return figures;
    }
    // A stop of an earlier run does not hold for this one.
    if (is_stop) hal_status_flag = 0;

    int fbo_max_lrc = 0;
    if (!readMaxRanges(fbo_max_lrc)) return figures;
    if (!readWear(service)) {
        FBO_LOG(ANDROID_LOG_ERROR, kName, "get ufs frag level to MB info fail");
    }
    // A stopped run answers with what it has reached: the counters go on into the next run, and
    // nothing is compared or mapped.
    if (!runZones(service, ZoneCutter(request, fbo_max_lrc), figures)) return figures;

    reportCounters();
    if (figures.before < figures.after) {
        FBO_LOG(ANDROID_LOG_ERROR, kName, "[FBO-HAL] the level becomes larger after defrag ");
        figures.after = figures.before;
    }
    mapLinearly();
    return figures;
}

}  // namespace

void record_cmd_fail(std::string node_name, int count) {
    if (count < 1) return;
    const auto directory = getFeatureDevicePath(kFboDirectory);
    if (!directory) return;

    const std::string path = *directory + node_name;
    NodeWriter node;
    if (!node.open(path)) {
        FBO_LOGE("[FBO-HAL] %s open fail!.", path.c_str());
        return;
    }
    node.putLine(std::to_string(count));
    FBO_LOGD("fail recode success");
}

Return<void> Fbo::FBO_trigger(const hidl_string& command, FBO_trigger_cb _hidl_cb) {
    const Figures figures = defragment(*this, {command.c_str(), command.size()});
    _hidl_cb("Fbo:" + std::to_string(figures.before) + ":" + std::to_string(figures.after));
    return Void();
}

Return<void> Fbo::FBO_stateCtl(const hidl_string& command, FBO_stateCtl_cb _hidl_cb) {
    const std::string words = command;
    if (words.find("stop") != std::string::npos) {
        is_stop = true;
        hal_status_flag = 1;
    } else if (words.find("continue") != std::string::npos) {
        hal_status_flag = 0;
    }
    _hidl_cb(command);
    return Void();
}

}  // namespace vendor::nivora::hardware::fbo::implementation
