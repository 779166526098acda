#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

/** Ends the process, as a crash does, unless `holds`; `what` says what should. */
inline void require(bool holds, const std::string& what) {
    if (holds) return;
    fprintf(stderr, "Does not hold: %s\n", what.c_str());
    abort();
}

}  // namespace fuzz
