#include "LogLine.h"

#include <android-base/strings.h>

namespace fboctl {

using android::base::ConsumePrefix;

std::optional<std::string_view> messageOf(std::string_view line, std::string_view function) {
    if (!ConsumePrefix(&line, function) || !ConsumePrefix(&line, ":")) return std::nullopt;
    const size_t number = line.find(": ");
    if (number == std::string_view::npos) return std::nullopt;
    line.remove_prefix(number + 2);
    if (!line.empty() && line[0] == '[') line.remove_prefix(line.find(']') + 1);
    ConsumePrefix(&line, " ");
    return line;
}

std::optional<std::string_view> messageAfter(std::string_view line, std::string_view function,
                                             std::string_view start) {
    auto message = messageOf(line, function);
    if (!message || !ConsumePrefix(&*message, start)) return std::nullopt;
    return message;
}

}  // namespace fboctl
