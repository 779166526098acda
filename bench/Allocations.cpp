#include "bench/Allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace bench {

namespace {

struct Counter {
    size_t count = 0;
    size_t bytes = 0;
    /** Bytes held; below 0 if what another thread took is given back. */
    ptrdiff_t held = 0;
    ptrdiff_t most_held = 0;
};

thread_local Counter counter;

void* take(size_t size) {
    void* block = malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    const size_t usable = malloc_usable_size(block);
    ++counter.count;
    counter.bytes += usable;
    counter.held += static_cast<ptrdiff_t>(usable);
    counter.most_held = std::max(counter.most_held, counter.held);
    return block;
}

void giveBack(void* block) {
    counter.held -= static_cast<ptrdiff_t>(malloc_usable_size(block));
    free(block);
}

}  // namespace

Allocations countAllocations(const std::function<void()>& action) {
    counter = {};
    action();
    return {counter.count, counter.bytes, static_cast<size_t>(counter.most_held)};
}

Row allocatedRow(const std::string& operation, const std::function<void()>& action) {
    const Allocations taken = countAllocations(action);
    return {operation, std::to_string(taken.bytes) + " in " + std::to_string(taken.count), "0"};
}

}  // namespace bench

void* operator new(size_t size) {
    return bench::take(size);
}

void operator delete(void* block) noexcept {
    bench::giveBack(block);
}

void operator delete(void* block, size_t) noexcept {
    bench::giveBack(block);
}
