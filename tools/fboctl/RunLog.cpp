#include "RunLog.h"

#include <algorithm>
#include <string_view>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "fbo/defrag/Report.h"
#include "fbo/defrag/Zones.h"
#include "fbo/utils/Makers.h"

namespace fboctl {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

/** As many characters of the ranges of a zone are kept. */
constexpr size_t kShownRanges = 60;

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

void RunLog::take(const std::string& text, std::optional<double> time) {
    take(text, findMeaning(text), time);
}

void RunLog::take(const std::string& text, const std::optional<KnownLine>& line,
                  std::optional<double> time) {
    if (report_follows_) {
        report_follows_ = false;
        takeNextLine(text);
    }
    if (!line) return;
    apply(*line);
    if (zones.empty() || ended) return;
    if (line->meaning->role == Role::kZone) zones.back().begin = time;
    zones.back().end = time;
    if (line->meaning->role != Role::kReport) return;
    if (!line->value.empty()) {
        takeReport(line->value);
        return;
    }
    // The UFS 4.0 engine begins a new line first, which a reader of logcat gets by itself.
    const size_t feed = text.find('\n');
    report_follows_ = feed == std::string::npos;
    if (!report_follows_) takeNextLine(std::string_view(text).substr(feed + 1));
}

void RunLog::apply(const KnownLine& line) {
    const LogMeaning* const meaning = line.meaning;
    const Role role = meaning->role;
    // Another call may follow the one before.
    if (role == Role::kLimit || role == Role::kZone) ended = over = false;
    refused |= role == Role::kRefused;
    stopped |= role == Role::kStop;
    raw_levels |= role == Role::kRawLevels;
    mapping_failed |= role == Role::kMappingFailed;
    begun |= role == Role::kLimit || role == Role::kRefused;
    // The trigger heeds a stop between two zones, an engine in one of them.
    const bool is_last =
            role == Role::kRefused || (role == Role::kStop && line.function == "FBO_trigger");
    ended |= is_last || role == Role::kFailCount || role == Role::kRetryCount;
    over |= is_last || role == Role::kMappingFailed ||
            (role == Role::kNoMapping && line.value != "1");

    int number = 0;
    android::base::ParseInt(std::string(line.value), &number);
    if (role == Role::kLimit) limit = static_cast<size_t>(std::max(0, number));
    if (role == Role::kLimitLarger) limit = kMaxRanges;
    if (role == Role::kFailCount) fails = number;
    if (role == Role::kRetryCount) retries = number;
    if (role == Role::kWorse) worse = meaning;
    if (role == Role::kZone) zones.emplace_back().ranges = line.value.substr(0, kShownRanges);
    if (!zones.empty() && !ended) {
        applyToZone(line, zones.back());
    } else if (meaning->cause != nullptr && meaning != worse) {
        trouble = meaning;
    }
}

void RunLog::applyToZone(const KnownLine& line, ZoneLog& zone) {
    const LogMeaning* const meaning = line.meaning;
    if (meaning->cause != nullptr) zone.trouble = meaning;
    if (meaning->role == Role::kZoneFailed) zone.failed = true;
    if (meaning->role == Role::kRetry) ++zone.retries;
    if (meaning->role == Role::kOptimised) {
        zone.optimised = true;
        zone.trouble = nullptr;
    }
}

void RunLog::takeNextLine(std::string_view line) {
    if (android::base::ConsumePrefix(&line, ": ")) takeReport(line);
}

void RunLog::takeReport(std::string_view report) {
    if (zones.empty() || report.size() <= kLevelIndex) return;
    ZoneLog& zone = zones.back();
    (zone.optimised ? zone.after : zone.before) = levelOf(std::string(report));
}

size_t RunLog::failedZones() const {
    return std::count_if(zones.begin(), zones.end(), [](auto& zone) { return zone.failed; });
}

size_t RunLog::unmeasuredZones() const {
    return std::count_if(zones.begin(), zones.end(),
                         [](auto& zone) { return !zone.failed && !zone.isMeasured(); });
}

Figures measuredFigures(const std::vector<ZoneLog>& zones, const Maker* maker) {
    return sum(zones, maker, true);
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
