#include "fbo/utils/Wear.h"

#include <fcntl.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "fbo/utils/Log.h"
#include "fbo/utils/Makers.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Paths.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

/** Guards `pe_cycle` and `level_to_num`. */
std::mutex wear_lock;

constexpr size_t kReportCharacters = 2 * kHealthReportBytes;

using HealthReport = std::array<uint8_t, kHealthReportBytes>;

uint32_t numberAt(const HealthReport& report, const ReportField& field) {
    uint32_t value = 0;
    for (size_t i = 0; i < field.width; ++i) {
        value = value << 8 | report[field.at + (field.big_endian ? i : field.width - 1 - i)];
    }
    return value;
}

uint32_t cyclesOf(const Maker& maker, const HealthReport& report) {
    if (maker.cycles_without_tbw.width > 0) {
        if (numberAt(report, kTbwField) == 0) return numberAt(report, maker.cycles_without_tbw);
        FBO_LOG(ANDROID_LOG_DEBUG, "getUFSPEcycleALevelToNum",
                "[FBO-HAL] vendor is sk, the tbw != 0");
    }
    return numberAt(report, maker.cycles);
}

/** Decodes the report's hexadecimal text. What is no number repeats the byte before it. */
HealthReport decode(const char* text) {
    HealthReport report;
    unsigned value = 0;
    for (size_t i = 0; i < report.size(); ++i) {
        sscanf(text + 2 * i, "%02x", &value);
        report[i] = static_cast<uint8_t>(value);
    }
    return report;
}

bool isWearUnread(const Fbo& service) {
    const std::lock_guard<std::mutex> lock(wear_lock);
    return service.pe_cycle == kWearUnread || service.level_to_num.empty();
}

}  // namespace

bool readWear(Fbo& service) {
    return !isWearUnread(service) || service.getUFSPEcycleALevelToNum() >= 0;
}

int32_t wearOf(const Fbo& service) {
    const std::lock_guard<std::mutex> lock(wear_lock);
    return service.pe_cycle;
}

bool mapLevels(Fbo& service, int32_t& before, int32_t& after) {
    const std::lock_guard<std::mutex> lock(wear_lock);
    if (service.level_to_num.empty()) return false;
    before = service.level_to_num[before];
    after = service.level_to_num[after];
    return true;
}

int Fbo::getUFSPEcycleALevelToNum() {
    std::string vendor;
    if (getUFSVendor(vendor) < 0) {
        FBO_LOGE("[FBO-HAL] get ufs vendor fail");
        return -1;
    }
    const unique_fd node = openFile(kHealthReportNode, O_RDONLY);
    if (!node.ok()) {
        FBO_LOGE("[FBO-HAL] ufs hr node open fail");
        return -1;
    }
    char text[kReportCharacters + 1] = {};
    const ssize_t size = readFile(node.get(), text, kReportCharacters);
    if (size < 0) {
        FBO_LOGE("[FBO-HAL] read hr failed");
        return -1;
    }
    const HealthReport report = decode(text);
    if (const Maker* maker = findMaker(vendor)) {
        const auto cycles = static_cast<int32_t>(cyclesOf(*maker, report));
        const std::lock_guard<std::mutex> lock(wear_lock);
        pe_cycle = cycles;
        level_to_num.clear();
        for (int level = 0; level < kLevels; ++level) level_to_num[level] = maker->numbers[level];
    } else {
        FBO_LOGE("[FBO-HAL] vendor not supported\n");
    }
    FBO_LOGI("[FBO-HAL] ufs vendor: %s pe_cycle: %d", vendor.c_str(), wearOf(*this));
    return static_cast<int>(size);
}

}  // namespace vendor::nivora::hardware::fbo::implementation
