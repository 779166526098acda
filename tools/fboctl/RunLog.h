#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace fboctl {

/** What the log tells of a zone. */
struct ZoneLog {
    /** The levels of the reports before and after the optimisation, as far as there were any. */
    std::optional<int32_t> before;
    std::optional<int32_t> after;
    /** The device has optimised the zone; what came of it is known only by a second report. */
    bool optimised = false;
    bool failed = false;

    /** Only then do the figures say anything: without a second report "after" counts as 0. */
    bool isMeasured() const { return after.has_value() && !failed; }
};

/** What the log tells of a run, that is, of one call of FBO_trigger() or of several in a row. */
class RunLog {
  public:
    /** Takes a line of the service's log, or the next line of a text of several lines. */
    void take(const std::string& text);

    std::vector<ZoneLog> zones;
    /** How many ranges a zone holds at most; 0: any number; nothing: not told. */
    std::optional<size_t> limit;
    /** The request was not taken as a whole. */
    bool refused = false;
    /** A stop was heeded, whoever asked for it. */
    bool stopped = false;
    bool mapping_failed = false;

    size_t failedZones() const;
    /** Zones that did not fail and have no second report all the same. */
    size_t unmeasuredZones() const;

  private:
    void takeOfTrigger(const std::string& text);
    void takeOfEngine(const std::string& text, const char* engine);
    void takeReport(const std::string& report);

    /** The report is what comes next. */
    bool report_follows_ = false;
};

/** What zones count for before and after. */
struct Figures {
    int64_t before = 0;
    int64_t after = 0;
};

/**
 * What the measured ones among `zones` count for. Which maker's numbers hold is seen by the sum
 * over all zones, which the service has answered as `before`; nothing if none fit, or several do.
 */
std::optional<Figures> measuredFigures(const std::vector<ZoneLog>& zones, int64_t before);

}  // namespace fboctl
