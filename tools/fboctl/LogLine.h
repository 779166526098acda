#pragma once

#include <optional>
#include <string_view>

namespace fboctl {

/**
 * What `function` says in a line of the service's log, "FUNCTION:LINE: [AREA] MESSAGE". Nothing if
 * another function speaks there.
 */
std::optional<std::string_view> messageOf(std::string_view line, std::string_view function);

/** What follows `start` in a message of `function`. Nothing if the line is no such message. */
std::optional<std::string_view> messageAfter(std::string_view line, std::string_view function,
                                             std::string_view start);

}  // namespace fboctl
