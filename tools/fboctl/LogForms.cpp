#include "LogForms.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <vector>

#include <android-base/parsedouble.h>
#include <android-base/parseint.h>
#include <android-base/strings.h>

namespace fboctl {

namespace {

using android::base::ConsumePrefix;
using android::base::ConsumeSuffix;
using android::base::ParseInt;

constexpr std::string_view kTag = "mem_fbo";
constexpr std::string_view kPriorities = "VDIWEF";
/** In seconds since 1970; what is beyond is no time. */
constexpr double kLatest = 1e11;

/** Takes the next word off the front of `text`. */
std::string takeWord(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    const std::string word(text.substr(0, text.find(' ')));
    text.remove_prefix(word.size());
    return word;
}

/** What a day and a clock of logcat's tell, in seconds; nothing if they are something else. */
std::optional<double> secondsOf(const std::string& date, const std::string& clock) {
    std::tm day{};
    double seconds = 0;
    char rest;
    day.tm_year = 2000;
    const char* const text = date.c_str();
    if (sscanf(text, "%2d-%2d%c", &day.tm_mon, &day.tm_mday, &rest) != 2 &&
        sscanf(text, "%4d-%2d-%2d%c", &day.tm_year, &day.tm_mon, &day.tm_mday, &rest) != 3) {
        return std::nullopt;
    }
    if (clock.find_first_not_of("0123456789:.") != std::string::npos ||
        sscanf(clock.c_str(), "%2d:%2d:%12lf", &day.tm_hour, &day.tm_min, &seconds) != 3) {
        return std::nullopt;
    }
    day.tm_year -= 1900;
    --day.tm_mon;
    return seconds + static_cast<double>(timegm(&day));
}

/** Reads what stands around the tag: time, priority and numbers; without a priority it is none. */
bool takeHeader(std::string_view header, LogEntry& entry) {
    LogForms::takeTime(header, entry);
    // Of "[ TIME USER: PID: TID P/", "TIME USER PID TID P " and "P/TAG( USER: PID" each number
    // counts from the end, the last form having no thread.
    std::vector<int> numbers;
    for (const std::string& word : android::base::Split(std::string(header), " [](/:")) {
        int number = 0;
        if (ParseInt(word, &number, 0)) {
            numbers.push_back(number);
        } else if (word.size() == 1 && kPriorities.find(word[0]) != std::string_view::npos) {
            entry.priority = word[0];
        }
    }
    const bool has_thread = header.find('(') == std::string_view::npos && numbers.size() > 1;
    if (has_thread) entry.thread = numbers.back();
    if (!numbers.empty()) entry.process = numbers.rbegin()[has_thread ? 1 : 0];
    return entry.priority != '\0';
}

}  // namespace

void LogForms::takeTime(std::string_view& text, LogEntry& entry) {
    ConsumePrefix(&text, "[ ");
    std::string_view rest = text;
    const std::string date = takeWord(rest);
    double seconds = 0;
    if (date.find_first_not_of("0123456789-.") != std::string::npos) return;
    if (date.find('-') != std::string::npos) {
        entry.time = secondsOf(date, takeWord(rest));
        std::string_view after = rest;
        const std::string zone = takeWord(after);
        int offset = 0;
        if (zone.size() == 5 && zone.find_first_of("+-") == 0 && ParseInt(zone, &offset)) {
            rest = after;
            if (entry.time) *entry.time -= (offset / 100 * 60 + offset % 100) * 60;
        }
    } else if (date.find('.') != std::string::npos &&
               android::base::ParseDouble(date.c_str(), &seconds, 0.0, kLatest)) {
        entry.time = seconds;
    } else if (android::base::StartsWith(rest, " s ") &&
               android::base::ParseDouble(date.c_str(), &seconds, 0.0, kLatest)) {
        // As fboctl --log has it.
        entry.time = seconds;
        takeWord(rest);
    }
    if (!entry.time) return;
    std::string_view stamp = text.substr(0, text.size() - rest.size());
    while (ConsumePrefix(&stamp, " ")) {
    }
    entry.stamp = stamp;
    text = rest;
}

LogEntry LogForms::parse(std::string_view line) {
    // What shows colours, and what comes from another system's shell.
    if (android::base::StartsWith(line, "\x1b[")) line.remove_prefix(line.find('m') + 1);
    ConsumeSuffix(&line, "\r");
    ConsumeSuffix(&line, "\x1b[0m");

    LogEntry entry;
    const size_t tag = line.find(kTag);
    if (ConsumeSuffix(&line, "  (mem_fbo)")) {
        const size_t end = std::min(line.find(')'), line.size());
        takeHeader(line.substr(0, end), entry);
        entry.text = line.substr(std::min(end + 2, line.size()));
        return entry;
    }
    if (tag != std::string_view::npos && tag > 0) {
        std::string_view rest = line.substr(tag + kTag.size());
        while (ConsumePrefix(&rest, " ")) {
        }
        std::string header(line.substr(0, tag));
        if (ConsumePrefix(&rest, "(")) {
            const size_t end = std::min(rest.find(')'), rest.size());
            header += "(" + std::string(rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
        if ((rest == "]" || ConsumePrefix(&rest, ":")) && takeHeader(header, entry)) {
            if (rest == "]") {
                heading_ = entry;
                return {};
            }
            ConsumePrefix(&rest, " ");
            entry.text = rest;
            return entry;
        }
    }
    // The heading of another tag, or the end of what has one.
    if (line.empty() || android::base::StartsWith(line, "[ ")) heading_.reset();
    entry = heading_.value_or(LogEntry{});
    entry.text = line;
    return entry;
}

}  // namespace fboctl
