#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace fboctl {

/** A line of a log. */
struct LogEntry {
    /** When, as it stands there; empty if it is not told. */
    std::string stamp;
    /** The same in seconds from some moment on; without a year, of the year 2000. */
    std::optional<double> time;
    /** 0: not told. */
    int process = 0;
    int thread = 0;
    /** As logcat's letter; 0 if the line is not known to be the service's. */
    char priority = '\0';
    std::string text;
};

/** Reads what logcat prints in any of its forms, and what fboctl shows and keeps of the log. */
class LogForms {
  public:
    /**
     * Reads the next line. One that does not have the service's tag is all text; without any tag
     * it may still be the service's.
     */
    LogEntry parse(std::string_view line);

    /** Takes the time off the front of `text`, if it begins with one. */
    static void takeTime(std::string_view& text, LogEntry& entry);

  private:
    /** In the form "long", what the heading tells of the lines to come. */
    std::optional<LogEntry> heading_;
};

}  // namespace fboctl
