#pragma once

#include <cstddef>
#include <functional>
#include <string>

#include "bench/Table.h"

namespace bench {

/** What the calling thread has taken from operator new while an action ran. */
struct Allocations {
    size_t count;
    size_t bytes;
    /** The most bytes at a time, beyond those that it held before. */
    size_t peak;
};

/** Runs `action` and counts. The program's operator new is the library's, too. */
Allocations countAllocations(const std::function<void()>& action);

/** A row for the bytes that `action` allocates in all. The floors here allocate nothing. */
Row allocatedRow(const std::string& operation, const std::function<void()>& action);

}  // namespace bench
