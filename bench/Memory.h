#pragma once

namespace bench {

/**
 * Has Google Benchmark report what the calling thread takes from operator new, which is the
 * library's too.
 */
void reportMemory();

}  // namespace bench
