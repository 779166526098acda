#pragma once

#include <functional>
#include <map>
#include <string>

#include "bench/Table.h"

namespace bench {

/** How often a thread makes each system call, by the number of the call. */
using SystemCalls = std::map<long, int>;

/** Runs `action` in a process of its own, watched, and counts the calls that it makes there. */
SystemCalls countSystemCalls(const std::function<void()>& action);

int total(const SystemCalls& calls);

/**
 * A row for what both make; of the calls that the library makes, `more` may be beyond the floor's,
 * call by call.
 */
Row systemCallRow(const std::string& operation, const SystemCalls& library,
                  const SystemCalls& floor, int more);

}  // namespace bench
