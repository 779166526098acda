#include "fbo/defrag/Wear.h"

#include <fcntl.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <string>

#include "fbo/defrag/Nodes.h"
#include "fbo/utils/Log.h"
#include "fbo/utils/Node.h"
#include "fbo/utils/Utils.h"

namespace vendor::nivora::hardware::fbo::implementation {

namespace {

/** Guards `pe_cycle` and `level_to_num`. */
std::mutex wear_lock;

constexpr size_t kReportBytes = 512;
constexpr size_t kReportCharacters = 2 * kReportBytes;
constexpr int kLevels = 11;

using HealthReport = std::array<uint8_t, kReportBytes>;

/** The number that starts at byte `at` of the report, most significant byte first. */
template <size_t kWidth>
uint32_t bigEndian(const HealthReport& report, size_t at) {
    uint32_t value = 0;
    for (size_t i = 0; i < kWidth; ++i) value = value << 8 | report[at + i];
    return value;
}

/** The number that starts at byte `at` of the report, least significant byte first. */
template <size_t kWidth>
uint32_t littleEndian(const HealthReport& report, size_t at) {
    uint32_t value = 0;
    for (size_t i = kWidth; i > 0; --i) value = value << 8 | report[at + i - 1];
    return value;
}

/** SKhynix reports its cycles in another place once it counts the bytes written (TBW). */
uint32_t skHynixCycles(const HealthReport& report) {
    if (littleEndian<4>(report, 144) == 0) return bigEndian<2>(report, 13);
    FBO_LOG(ANDROID_LOG_DEBUG, "getUFSPEcycleALevelToNum", "[FBO-HAL] vendor is sk, the tbw != 0");
    return littleEndian<2>(report, 8);
}

/** What is known of a maker's flash. */
struct Maker {
    /** Occurs in the vendor text of the device. */
    const char* name;
    /** What the fragmentation levels 0 to 10 count for. */
    std::array<int32_t, kLevels> numbers;
    uint32_t (*cycles)(const HealthReport& report);
};

/** In the order in which the names are looked for. Repeated numbers are the makers' own. */
constexpr Maker kMakers[] = {
        {"MICRON",
         {0, 1, 2, 4, 6, 9, 12, 15, 20, 26, 38},
         [](const HealthReport& report) { return bigEndian<4>(report, 24); }},
        {"WDC",
         {0, 1, 3, 11, 11, 27, 30, 64, 106, 221, 223},
         [](const HealthReport& report) { return littleEndian<4>(report, 8); }},
        {"KIOXIA",
         {0, 0, 9, 14, 29, 62, 105, 183, 429, 486, 512},
         [](const HealthReport& report) { return bigEndian<4>(report, 24); }},
        {"SKhynix", {0, 2, 27, 60, 92, 124, 165, 165, 282, 282, 440}, skHynixCycles},
        {"SAMSUNG",
         {0, 19, 50, 71, 106, 143, 192, 192, 486, 486, 486},
         [](const HealthReport& report) { return bigEndian<4>(report, 156); }},
};

const Maker* findMaker(const std::string& vendor) {
    for (const Maker& maker : kMakers) {
        if (vendor.find(maker.name) != std::string::npos) return &maker;
    }
    return nullptr;
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
    const UniqueFd node(openFile(kHealthReportNode, O_RDONLY));
    if (!node.isOpen()) {
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
        const auto cycles = static_cast<int32_t>(maker->cycles(report));
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
