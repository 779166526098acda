#include "LogLine.h"

namespace fboctl {

namespace {

bool removePrefix(std::string_view& text, std::string_view prefix) {
    if (text.substr(0, prefix.size()) != prefix) return false;
    text.remove_prefix(prefix.size());
    return true;
}

}  // namespace

std::optional<std::string_view> messageOf(std::string_view line, std::string_view function) {
    if (!removePrefix(line, function) || !removePrefix(line, ":")) return std::nullopt;
    const size_t number = line.find(": ");
    if (number == std::string_view::npos) return std::nullopt;
    line.remove_prefix(number + 2);
    if (!line.empty() && line[0] == '[') line.remove_prefix(line.find(']') + 1);
    removePrefix(line, " ");
    return line;
}

std::optional<std::string_view> messageAfter(std::string_view line, std::string_view function,
                                             std::string_view start) {
    auto message = messageOf(line, function);
    if (!message || !removePrefix(*message, start)) return std::nullopt;
    return message;
}

}  // namespace fboctl
