#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/*
 * What a fuzz target consists of. It is linked either with the fuzzer of clang or with Replay.cpp,
 * which runs it with any compiler.
 */

/** Makes what the inputs of a process share; a target that needs nothing has none. */
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);

/** Runs one input. What must not happen ends the process. */
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace fuzz {

/** Inputs that have found something once, or reach what chance seldom does. */
extern const std::vector<std::string> kRegressions;

}  // namespace fuzz
