#include "RunLog.h"

#include <algorithm>
#include <string_view>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "LogLine.h"
#include "fbo/defrag/Report.h"
#include "fbo/defrag/Zones.h"
#include "fbo/utils/Makers.h"

namespace fboctl {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

constexpr const char* kEngines[] = {"UFS40_FBO_Imp", "UFS31_FBO_Imp"};

/** What a level counts for; a level that no maker has counts for itself, as the service has it. */
int64_t figureOf(int32_t level, const Maker* maker) {
    const bool is_known = maker != nullptr && level >= 0 && level < kLevels;
    return int64_t{is_known ? maker->numbers[static_cast<size_t>(level)] : level} * kFigureScale;
}

Figures sum(const std::vector<ZoneLog>& zones, const Maker* maker, bool measured_only) {
    Figures figures;
    for (const ZoneLog& zone : zones) {
        if (measured_only && !zone.isMeasured()) continue;
        figures.before += figureOf(zone.before.value_or(0), maker);
        figures.after += figureOf(zone.after.value_or(0), maker);
    }
    return figures;
}

}  // namespace

void RunLog::take(const std::string& text) {
    if (report_follows_) {
        report_follows_ = false;
        takeReport(text);
    }
    takeOfTrigger(text);
    for (const char* engine : kEngines) takeOfEngine(text, engine);
}

void RunLog::takeOfTrigger(const std::string& text) {
    const auto says = [&](const char* start) { return messageAfter(text, "FBO_trigger", start); };
    int number = 0;
    if (says("fbo_max_lrc is larger")) {
        limit = kMaxRanges;
    } else if (const auto told = says("fbo_max_lrc is ")) {
        const std::string_view digits = told->substr(0, told->find('.'));
        if (!android::base::ParseInt(std::string(digits), &number)) return;
        limit = static_cast<size_t>(std::max(0, number));
    } else if (says("lba is: ")) {
        zones.emplace_back();
    } else if (says("zone[")) {
        if (!zones.empty()) zones.back().failed = true;
    } else if (says("lba null.") || says("read fbo max lrc fail.")) {
        refused = true;
    } else if (says("hal stop")) {
        stopped = true;
    } else if (says("FBO2.0 Linear Mapping Fail")) {
        mapping_failed = true;
    }
}

void RunLog::takeOfEngine(const std::string& text, const char* engine) {
    const auto says = [&](const char* start) { return messageAfter(text, engine, start); };
    if (says("hal stop")) {
        stopped = true;
    } else if (zones.empty()) {
        return;
    } else if (says("fbo_defrag_enable success") || says("fbs_defrag_enable success")) {
        zones.back().optimised = true;
    } else if (const auto report = says("read buff success, the level is")) {
        // The UFS 4.0 engine begins a new line first, which a reader of logcat gets by itself.
        const size_t colon = report->find(": ");
        report_follows_ = colon == std::string_view::npos;
        if (!report_follows_) takeReport(std::string(report->substr(colon)));
    }
}

void RunLog::takeReport(const std::string& report) {
    std::string_view content = report;
    if (zones.empty() || !android::base::ConsumePrefix(&content, ": ")) return;
    if (content.size() <= kLevelIndex) return;
    ZoneLog& zone = zones.back();
    (zone.optimised ? zone.after : zone.before) = levelOf(std::string(content));
}

size_t RunLog::failedZones() const {
    return std::count_if(zones.begin(), zones.end(), [](auto& zone) { return zone.failed; });
}

size_t RunLog::unmeasuredZones() const {
    return std::count_if(zones.begin(), zones.end(),
                         [](auto& zone) { return !zone.failed && !zone.isMeasured(); });
}

std::optional<Figures> measuredFigures(const std::vector<ZoneLog>& zones, int64_t before) {
    std::optional<Figures> figures;
    const auto tryMaker = [&](const Maker* maker) {
        if (sum(zones, maker, false).before != before) return true;
        const Figures found = sum(zones, maker, true);
        const bool fits = !figures || figures->before == found.before;
        figures = found;
        return fits;
    };
    bool is_clear = tryMaker(nullptr);
    for (const Maker& maker : kMakers) is_clear = tryMaker(&maker) && is_clear;
    return is_clear ? figures : std::nullopt;
}

}  // namespace fboctl
