#include "LogMeanings.h"

#include <android-base/strings.h>

namespace fboctl {

namespace {

using android::base::ConsumePrefix;
using android::base::ConsumeSuffix;

/** Takes what ends at `end`, or all, off the front of `text`. */
std::string_view takeUntil(std::string_view& text, std::string_view end) {
    const size_t at = text.find(end);
    const std::string_view taken = text.substr(0, at);
    text.remove_prefix(at == std::string_view::npos ? text.size() : at + end.size());
    return taken;
}

enum Fit { kNone, kCut, kWhole };

/** How `text` fits `format`; where the format has a line feed, another line may begin. */
Fit fit(std::string_view text, std::string_view format, std::string_view& value) {
    if (format.find('\n') != std::string_view::npos) text = takeUntil(text, "\n");
    format = takeUntil(format, "\n");
    if (format.find('%') == std::string_view::npos) return text == format ? kWhole : kNone;
    if (!ConsumePrefix(&text, takeUntil(format, "%"))) return kNone;
    format.remove_prefix(format.find_first_of("ds") + 1);
    value = text;
    const std::string_view next = takeUntil(format, "%");
    if (format.empty()) return ConsumeSuffix(&value, next) ? kWhole : kCut;
    value = takeUntil(text, next);
    return text.empty() ? kCut : kWhole;
}

bool isAmong(std::string_view function, std::string_view functions) {
    while (!functions.empty()) {
        if (takeUntil(functions, ", ") == function) return true;
    }
    return false;
}

/** Of the text for printf(), or for a cell of a table. */
std::string shown(std::string_view format) {
    return android::base::StringReplace(format, "\n", "\\n", true);
}

}  // namespace

std::optional<KnownLine> findMeaning(std::string_view text, char priority) {
    std::string_view rest = text;
    const std::string_view function = takeUntil(rest, ":");
    const std::string_view number = takeUntil(rest, ": ");
    if (number.empty() || number.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    std::optional<KnownLine> known;
    Fit best = kNone;
    for (const LogMeaning& meaning : kLogMeanings) {
        if (meaning.priority == '\0' || !isAmong(function, meaning.functions)) continue;
        std::string_view value;
        const Fit found = fit(rest, meaning.format, value);
        const bool is_of_priority = priority == '\0' || priority == meaning.priority;
        if (found > best || (found == best && found != kNone && is_of_priority &&
                             known->meaning->priority != priority)) {
            best = found;
            known = KnownLine{function, &meaning, value};
        }
    }
    return known;
}

std::string describeLog() {
    std::string text;
    for (const LogMeaning& row : kLogMeanings) {
        if (row.priority == '\0') {
            text += std::string(text.empty() ? "" : "\n") + "### " + row.functions +
                    "\n\n| function | P | line | what it means |\n|---|---|---|---|\n";
            continue;
        }
        text += "| `" + android::base::StringReplace(row.functions, ", ", "`, `", true) + "` | " +
                row.priority + " | `" + shown(row.format) + "` | " + row.meaning + " |\n";
    }
    return text;
}

}  // namespace fboctl
