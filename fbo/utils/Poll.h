#pragma once

#include <unistd.h>

#include <optional>

namespace vendor::nivora::hardware::fbo::implementation {

/**
 * Waits for a device, round by round: while `delay()` answers, sleeps for as many seconds as it
 * says (0: not at all) and runs `look()`, at most `limit` times.
 *
 * @param delay gives a std::optional<unsigned>: seconds until the next look, or nothing to end
 *     the wait.
 */
template <typename Delay, typename Look>
void poll(int limit, Delay delay, Look look) {
    for (int round = 0; round < limit; ++round) {
        const std::optional<unsigned> seconds = delay();
        if (!seconds) return;
        if (*seconds > 0) sleep(*seconds);
        look();
    }
}

}  // namespace vendor::nivora::hardware::fbo::implementation
