#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Cuts a request into zones of at most `max_ranges` ranges, that is twice as many numbers, with
 * the commas between them and none at the end. Only commas are counted; what stands between them
 * is not looked at.
 *
 * The last character of the request is taken to be its closing comma and is dropped, whatever it
 * is. A comma in the first place is not seen. Without a comma there is no zone; with `max_ranges`
 * below 1 the whole request is one.
 */
std::vector<std::string> cutZones(std::string_view request, int max_ranges);

}  // namespace vendor::nivora::hardware::fbo::implementation
