/*
 * Runs the service on simulated devices that fail in every way, as a seeded generator has it:
 *
 *     fbo_stress RUNS SEED [RUN]
 *
 * The last one picks a single run, which is told in full.
 */

#include <cstdlib>
#include <iostream>
#include <random>

#include "Run.h"

namespace {

bool carryOut(unsigned seed, unsigned run, stress::Tally& tally, bool prints) {
    std::seed_seq mixed{seed, run};
    std::mt19937 random(mixed);
    std::vector<uint8_t> bytes(1024);
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    const stress::Scenario scenario{stress::Bytes(bytes)};
    if (prints) std::cerr << scenario.device << std::endl;
    return stress::Run(scenario, tally, prints).carryOut();
}

/** Each of some processes carries out its share of the runs. */
void soak(unsigned runs, unsigned seed, stress::Tally& tally) {
    const unsigned jobs = std::max(1U, std::thread::hardware_concurrency());
    for (unsigned job = 0; job < jobs; ++job) {
        if (fork() > 0) continue;
        for (unsigned run = job; run < runs; run += jobs) {
            if (carryOut(seed, run, tally, false)) continue;
            fprintf(stderr, "Run %u is wrong: scripts/soak --seed %u --run %u\n", run, seed, run);
        }
        _exit(EXIT_SUCCESS);
    }
    while (wait(nullptr) > 0) {
    }
}

}  // namespace

int main(int argc, char** argv) {
    const auto number = [&](int i) { return i < argc ? strtoul(argv[i], nullptr, 10) : 0; };
    const auto runs = static_cast<unsigned>(number(1));
    const auto seed = static_cast<unsigned>(number(2));
    stress::Tally& tally = *stress::share<stress::Tally>();
    if (argc > 3) return carryOut(seed, number(3), tally, true) ? EXIT_SUCCESS : EXIT_FAILURE;
    soak(runs, seed, tally);
    std::cout << tally.runs << " of " << runs << " runs with seed " << seed << ": " << tally.events
              << " events, " << tally.errors << " errors escaped, " << tally.stops
              << " runs were stopped, " << tally.killed << " killed, " << tally.unkillable
              << " could not be (there is no ptrace); " << tally.violations << " violations\n";
    const bool is_good = runs > 0 && tally.runs == static_cast<int>(runs) && tally.violations == 0;
    return is_good ? EXIT_SUCCESS : EXIT_FAILURE;
}
