#pragma once

#include <set>
#include <string>
#include <string_view>

namespace sim {

/** What to add to the message that nothing is called `name`: the names of `known` nearest to it. */
std::string didYouMean(std::string_view name, const std::set<std::string>& known);

}  // namespace sim
