#pragma once

#include "soak/Record.h"
#include "soak/Schedule.h"

namespace soak {

/** Seconds of real time after which a run hangs. */
constexpr unsigned kPatience = 20;

/**
 * Carries out a schedule in this process, which then is of no further use: it has entered a
 * simulated phone. The outcome is in `record`.
 *
 * @param print whether to print what happens on standard error.
 */
void carryOut(const Schedule& schedule, Record& record, bool print);

}  // namespace soak
