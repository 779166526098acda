#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Session.h"

namespace fboctl {

/** The result of sending a list of erase requests. */
struct EraseResult {
    /** Whether all items have been gone through. */
    bool sent = true;
    /** How many items have been gone through. */
    size_t items = 0;
};

/** How many items the service makes of `list`: a ":" at the end begins none. */
size_t countItems(std::string_view list);

/** Hands `list` to EUA_SendEraseCmd(), in as many calls as it takes, up to one that answers no. */
EraseResult sendErase(const Session& session, const std::string& list);

}  // namespace fboctl
