/*
 * The stress program for clang's fuzzer: an input is the bytes of a run.
 */

#include "Run.h"

// Where the sanitizer counts what the library runs through, by its own names.
// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
extern "C" uint8_t __start___sancov_cntrs[];
extern "C" uint8_t __stop___sancov_cntrs[];
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const size_t kCounters = __stop___sancov_cntrs - __start___sancov_cntrs;
    // The fuzzer looks at the counters of its own process; the service is in others.
    static auto* const counters = stress::share<uint8_t>(kCounters);
    static auto* const tally = stress::share<stress::Tally>();
    memset(counters, 0, kCounters);
    const stress::Scenario scenario{stress::Bytes({data, data + size})};
    stress::Run run(scenario, *tally, getenv("PRINT") != nullptr, [] {
        for (size_t i = 0; i < kCounters; ++i) {
            counters[i] = std::max(counters[i], __start___sancov_cntrs[i]);
        }
    });
    if (!run.carryOut()) abort();
    memcpy(__start___sancov_cntrs, counters, kCounters);
    return 0;
}
