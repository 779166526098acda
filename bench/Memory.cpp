#include "bench/Memory.h"

#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace bench {

namespace {

thread_local int64_t g_allocations = 0;
/** Bytes held since the start; below 0 if what was held before is given back. */
thread_local int64_t g_held = 0;
thread_local int64_t g_most_held = 0;

class Manager : public benchmark::MemoryManager {
  public:
    // Releases of Google Benchmark differ in which Stop() they have, so none says override.
    void Start() { g_allocations = g_held = g_most_held = 0; }
    void Stop(Result& result) {
        result.num_allocs = g_allocations;
        result.max_bytes_used = g_most_held;
    }
    void Stop(Result* result) { Stop(*result); }
};

}  // namespace

void reportMemory() {
    static Manager manager;
    benchmark::RegisterMemoryManager(&manager);
}

}  // namespace bench

void* operator new(size_t size) {
    void* block = malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    ++bench::g_allocations;
    bench::g_held += static_cast<int64_t>(malloc_usable_size(block));
    bench::g_most_held = std::max(bench::g_most_held, bench::g_held);
    return block;
}

void operator delete(void* block) noexcept {
    bench::g_held -= static_cast<int64_t>(malloc_usable_size(block));
    free(block);
}

void operator delete(void* block, size_t) noexcept {
    operator delete(block);
}
