#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fuzz {

/** `pieces` with `separator` between them. */
std::string join(const std::vector<std::string>& pieces, char separator);

/**
 * Requires of the zones that a request was cut into that nothing of it got lost, doubled or out of
 * order, and that no zone has more ranges than the device takes.
 *
 * @param max_ranges ranges in a zone; below 1 there is no limit.
 */
void requireZonesOf(std::string_view request, const std::vector<std::string>& zones,
                    int max_ranges);

}  // namespace fuzz
