#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "LogMeanings.h"
#include "fbo/utils/Makers.h"

namespace fboctl {

using vendor::nivora::hardware::fbo::implementation::Maker;

/** What the log tells of a zone. */
struct ZoneLog {
    /** As they were sent, or the first of them. */
    std::string ranges;
    /** The levels of the reports before and after the optimisation, as far as there were any. */
    std::optional<int32_t> before;
    std::optional<int32_t> after;
    /** The device has optimised the zone; what came of it is known only by a second report. */
    bool optimised = false;
    bool failed = false;
    size_t retries = 0;
    /** The last line that names a cause, in case that the zone has failed or is not measured. */
    const LogMeaning* trouble = nullptr;
    /** When it began, and when the last line came, in seconds; nothing if that is not known. */
    std::optional<double> begin;
    std::optional<double> end;

    /** Only then do the figures say anything: without a second report "after" counts as 0. */
    bool isMeasured() const { return after.has_value() && !failed; }
};

/** What the log tells of a run, that is, of one call of FBO_trigger() or of several in a row. */
class RunLog {
  public:
    /**
     * Takes a line of the service's log, or the next line of a text of several lines.
     *
     * @param time when it was logged, in seconds.
     */
    void take(const std::string& text, std::optional<double> time = {});
    /** The same for a line whose meaning is known, if it has one. */
    void take(const std::string& text, const std::optional<KnownLine>& line,
              std::optional<double> time);

    std::vector<ZoneLog> zones;
    /** How many ranges a zone holds at most; 0: any number; nothing: not told. */
    std::optional<size_t> limit;
    /** The request was not taken as a whole. */
    bool refused = false;
    /** A stop was heeded, whoever asked for it. */
    bool stopped = false;
    bool mapping_failed = false;
    /** The line that tells that the sum after was above the sum before. */
    const LogMeaning* worse = nullptr;
    /** There is no table for the maker, so levels count for themselves. */
    bool raw_levels = false;
    /** The counters as the service has told them. */
    std::optional<int> fails;
    std::optional<int> retries;
    /** The begin has been seen, the end of the zones, and the end of the whole run. */
    bool begun = false;
    bool ended = false;
    bool over = false;
    /** The last line that names a cause, outside the zones. */
    const LogMeaning* trouble = nullptr;

    /** The report is what comes next. */
    bool expectsReport() const { return report_follows_; }
    size_t failedZones() const;
    /** Zones that did not fail and have no second report all the same. */
    size_t unmeasuredZones() const;

  private:
    void apply(const KnownLine& line);
    void applyToZone(const KnownLine& line, ZoneLog& zone);
    void takeNextLine(std::string_view line);
    void takeReport(std::string_view report);

    bool report_follows_ = false;
};

/** What zones count for before and after. */
struct Figures {
    int64_t before = 0;
    int64_t after = 0;
};

/** What the measured ones among `zones` count for; without a maker levels count for themselves. */
Figures measuredFigures(const std::vector<ZoneLog>& zones, const Maker* maker);

/**
 * The same where the maker is not known. Which maker's numbers hold is seen by the sum
 * over all zones, which the service has answered as `before`; nothing if none fit, or several do.
 */
std::optional<Figures> measuredFigures(const std::vector<ZoneLog>& zones, int64_t before);

}  // namespace fboctl
