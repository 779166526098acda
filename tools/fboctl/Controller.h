#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace fboctl {

/** The host controller, as the service finds it. */
struct Controller {
    /** The driver's directory, with a slash at its end. */
    std::string driver;
    /** The controller's directory below it, without one; empty if there is none. */
    std::string directory;
    /** Why there is none. */
    std::string wrong;
};

Controller findController();

/** How many ranges a zone holds on this device; 0: any number. Nothing if that cannot be read. */
std::optional<size_t> readZoneLimit();

}  // namespace fboctl
