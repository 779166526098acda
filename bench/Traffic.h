#pragma once

#include <functional>

#include "bench/Table.h"
#include "sim/Simulator.h"

namespace bench {

/**
 * Runs both on `phone` and compares what they read and write there, line by line. What the device
 * learns from the first run must not change what it answers in the second.
 */
Row trafficRow(const std::string& operation, sim::Simulator& phone,
               const std::function<void()>& library, const std::function<void()>& floor);

}  // namespace bench
