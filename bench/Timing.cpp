#include "bench/Timing.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

/** Keeps the least CPU time of each benchmark, by its place, over several runs. */
class LeastTimes : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context&) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            const bool is_floor = run.run_name.function_name == "floor";
            double& least = is_floor ? cost_.floor : cost_.library;
            least = std::min(least, run.GetAdjustedCPUTime());
        }
    }

    const Cost& cost() const { return cost_; }

  private:
    static constexpr double kNever = std::numeric_limits<double>::infinity();
    Cost cost_ = {kNever, kNever};
};

void registerCalls(const char* name, const std::function<void()>& action, int calls) {
    benchmark::RegisterBenchmark(name, [&action](benchmark::State& state) {
        for (auto unused : state) {
            static_cast<void>(unused);
            action();
        }
    })->Iterations(calls);
}

}  // namespace

Cost measure(const std::function<void()>& library, const std::function<void()>& floor,
             Effort effort) {
    benchmark::ClearRegisteredBenchmarks();
    registerCalls("library", library, effort.calls);
    registerCalls("floor", floor, effort.calls);
    LeastTimes least;
    for (int round = 0; round < effort.rounds; ++round) {
        if (benchmark::RunSpecifiedBenchmarks(&least) != 2) {
            throw std::runtime_error("a benchmark did not run");
        }
    }
    return least.cost();
}

Row costRow(const std::string& operation, const Cost& cost, double most) {
    const double ratio = cost.library / cost.floor;
    Row row{operation, duration(cost.library), duration(cost.floor), decimal(ratio, 2)};
    if (most > 0) {
        row.wanted = "<= " + decimal(most, 1);
        row.verdict = judgeTime(ratio <= most, ratio <= 2 * most);
    }
    return row;
}

const std::vector<size_t>& sizes() {
    static const std::vector<size_t> kSizes = {1 << 10, 1 << 12, 1 << 14,
                                               1 << 16, 1 << 18, 1 << 20};
    return kSizes;
}

double exponent(const Curve& curve) {
    double x_mean = 0;
    double y_mean = 0;
    for (const auto& [x, y] : curve) {
        x_mean += std::log(x) / static_cast<double>(curve.size());
        y_mean += std::log(y) / static_cast<double>(curve.size());
    }
    double covariance = 0;
    double variance = 0;
    for (const auto& [x, y] : curve) {
        covariance += (std::log(x) - x_mean) * (std::log(y) - y_mean);
        variance += (std::log(x) - x_mean) * (std::log(x) - x_mean);
    }
    return covariance / variance;
}

Curve growth(const Curve& curve, double fixed) {
    Curve grown;
    for (const auto& [size, cost] : curve) {
        if (cost > 2 * fixed) grown.emplace_back(size, cost - fixed);
    }
    return grown;
}

Row exponentRow(const std::string& operation, double library, double floor, Figure figure) {
    const bool met = library >= 0.9 && library <= 1.1;
    const bool explicable = library >= 0.7 && library <= 1.3;
    return {operation,
            decimal(library, 3),
            decimal(floor, 3),
            "-",
            "0.9 to 1.1",
            figure == Figure::kCount ? judgeCount(met) : judgeTime(met, explicable)};
}

}  // namespace bench
