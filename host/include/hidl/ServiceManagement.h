#pragma once

/*
 * A host's stand-in for the platform's header of this name.
 */

#include <string>
#include <vector>

namespace android::hardware {

/** The names of the instances of the interface `descriptor` that are declared or registered. */
std::vector<std::string> getAllHalInstanceNames(const std::string& descriptor);

}  // namespace android::hardware
