#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include <benchmark/benchmark.h>

#include "bench/Allocations.h"
#include "bench/Request.h"
#include "bench/Sections.h"
#include "bench/Service.h"
#include "bench/SystemCalls.h"
#include "bench/Timing.h"
#include "bench/Traffic.h"
#include "bench/floor.h"
#include "fbo/defrag/Capability.h"
#include "fbo/defrag/Nodes.h"
#include "fbo/defrag/Ufs40.h"
#include "fbo/defrag/Zones.h"
#include "fbo/utils/Utils.h"
#include "sim/Simulator.h"

namespace bench {

namespace {

/** Allocations that a run may make once, for its answer and the like. */
constexpr size_t kOthers = 64;

/** Zones in a request of requestText(). */
size_t zonesIn(size_t size) {
    return size / zoneText().size();
}

void cutByLibrary(const std::string& request) {
    ZoneCutter zones(request, kRanges);
    while (const auto zone = zones.next()) benchmark::DoNotOptimize(zone->size());
}

void cutByFloor(const std::string& request) {
    const auto take = [](void*, const char*, size_t length) {
        benchmark::DoNotOptimize(length);
        return true;
    };
    floor_cut(request.data(), request.size(), kRanges, take, nullptr);
}

void measureCutting(Table& table) {
    Curve library_curve;
    Curve floor_curve;
    Cost cost{};
    size_t allocations = 0;
    for (const size_t size : sizes()) {
        const std::string request = requestText(size);
        const auto library = [&request] { cutByLibrary(request); };
        cost = measure(library, [&request] { cutByFloor(request); },
                       {static_cast<int>(sizes().back() / size), 10});
        library_curve.emplace_back(size, cost.library);
        floor_curve.emplace_back(size, cost.floor);
        allocations += countAllocations(library).count;
    }
    table.title("Cutting requests of 1 KiB to 1 MiB into zones");
    table.add(costRow("CPU time, 1 MiB", cost, 0));
    table.add(exponentRow("exponent of CPU time", exponent(library_curve), exponent(floor_curve),
                          Figure::kTime));
    table.add({"allocations", std::to_string(allocations), "-", "-", "0",
               judgeCount(allocations == 0)});
}

/** What FBO_trigger answers to `request`. */
void trigger(Fbo& service, const hidl_string& request) {
    service.FBO_trigger(request, [](const hidl_string&) {});
}

/** How often a zone's steps allocate that FBO_trigger goes through, the zone being there. */
size_t allocationsOfSteps(std::string zone) {
    int32_t before = 0;
    int32_t after = 0;
    return countAllocations([&] {
               getFeatureDevicePath(kFboDirectory);
               FBO_isUFS31();
               UFS40_FBO_Imp(std::move(zone), before, after);
           })
            .count;
}

/** The figures of a run by the size of its request. */
struct Curves {
    Curve time, floor_time;
    Curve calls, floor_calls;
    Curve allocations;
    /** The most memory at a time, in requests. */
    double most_held = 0;
};

/** What is measured last, at 1 MiB. */
struct Largest {
    Cost cost;
    SystemCalls calls, floor_calls;
    size_t allocations;
};

void addRows(const Curves& curves, const Largest& largest, Table& table) {
    table.add(costRow("CPU time, 1 MiB", largest.cost, 1.3));
    table.add(exponentRow("exponent of CPU time", exponent(curves.time),
                          exponent(curves.floor_time), Figure::kTime));
    table.add(systemCallRow("system calls, 1 MiB", largest.calls, largest.floor_calls, 0));
    table.add(exponentRow("exponent of system calls", exponent(curves.calls),
                          exponent(curves.floor_calls), Figure::kCount));

    table.title("A run of FBO_trigger: memory");
    table.add({"most memory at a time, in requests", decimal(curves.most_held, 2), "-", "-", "<= 3",
               judgeCount(curves.most_held <= 3)});
    Row row =
            exponentRow("exponent of allocations", exponent(curves.allocations), 1, Figure::kCount);
    row.floor = "-";
    table.add(row);
    std::string zone = zoneText();
    zone.pop_back();
    const size_t zones = zonesIn(sizes().back());
    const size_t steps = allocationsOfSteps(zone);
    const size_t cutting = largest.allocations - zones * steps;
    const size_t others = cutting % zones;
    table.add({"allocations for a zone's steps", std::to_string(steps)});
    table.add({"allocations for the cutting, 1 MiB",
               std::to_string(cutting / zones) + "/zone + " + std::to_string(others), "-", "-",
               "<= 1/zone + " + std::to_string(kOthers),
               judgeCount(cutting / zones <= 1 && others <= kOthers)});
}

void measureRuns(sim::Simulator& phone, Fbo& service, Table& table) {
    Curves curves;
    Largest largest{};
    floor_levels sums{};
    table.title("A run of FBO_trigger over requests of 1 KiB to 1 MiB, UFS 4.0");
    // Once for the flash, which then answers every run alike, and for the wear.
    trigger(service, requestText(sizes().front()));
    for (const size_t size : sizes()) {
        const std::string text = requestText(size);
        const hidl_string request = text;
        const auto library = [&] { trigger(service, request); };
        const auto floor = [&] {
            if (!floor_trigger(text.data(), text.size(), &sums)) {
                throw std::runtime_error("the floor of a run fails");
            }
        };
        constexpr size_t kSmall = 1 << 16;
        if (size == kSmall)
            table.add(trafficRow("reads and stores, 64 KiB", phone, library, floor));
        const int calls = static_cast<int>(std::max(kSmall / size, size_t{1}));
        const Allocations allocations = countAllocations(library);
        largest = {measure(library, floor, {calls, 2}), countSystemCalls(library),
                   countSystemCalls(floor), allocations.count};
        curves.time.emplace_back(size, largest.cost.library);
        curves.floor_time.emplace_back(size, largest.cost.floor);
        curves.calls.emplace_back(size, total(largest.calls));
        curves.floor_calls.emplace_back(size, total(largest.floor_calls));
        curves.allocations.emplace_back(size, allocations.count);
        curves.most_held = std::max(curves.most_held, static_cast<double>(allocations.peak) /
                                                              static_cast<double>(size));
    }
    addRows(curves, largest, table);
}

}  // namespace

void measureRequests(const std::filesystem::path&, Table& table) {
    sim::Simulator phone("ufs40:micron,analysis=0,optimise=0,linear=0");
    Fbo& service = startService();
    if (!floor_find_controller()) throw std::runtime_error("no controller");
    measureCutting(table);
    measureRuns(phone, service, table);
}

}  // namespace bench
