#pragma once

#include <stdexcept>
#include <string>

namespace soak {

/** Something is not as it has to be after, or in, a run. No error of the service is one. */
struct Violation : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** Throws a Violation that says `what` unless `holds`. */
inline void require(bool holds, const std::string& what) {
    if (!holds) throw Violation(what);
}

}  // namespace soak
