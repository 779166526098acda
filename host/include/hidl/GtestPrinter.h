#pragma once

/*
 * A host's stand-in for the platform's header of this name.
 */

#include <cctype>
#include <string>

#include <gtest/gtest.h>

namespace android::hardware {

/** Names the instance of a parameterised test after the instance of the service. */
static inline std::string PrintInstanceNameToString(
        const testing::TestParamInfo<std::string>& info) {
    std::string name = std::to_string(info.index) + "/" + info.param;
    for (char& c : name) {
        if (isalnum(static_cast<unsigned char>(c)) == 0) c = '_';
    }
    return name;
}

}  // namespace android::hardware
