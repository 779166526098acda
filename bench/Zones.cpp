#include <stdexcept>
#include <string>

#include "bench/Allocations.h"
#include "bench/Request.h"
#include "bench/Sections.h"
#include "bench/Service.h"
#include "bench/SystemCalls.h"
#include "bench/Timing.h"
#include "bench/Traffic.h"
#include "bench/floor.h"
#include "fbo/defrag/Ufs31.h"
#include "fbo/defrag/Ufs40.h"
#include "sim/Simulator.h"

namespace bench {

namespace {

using LibraryZone = int32_t (*)(std::string lr_list, int32_t& level_before, int32_t& level_after);
using FloorZone = bool (*)(const char* list, size_t length, floor_levels* levels);

void measureZone(const std::string& device, const std::string& name, LibraryZone library_zone,
                 FloorZone floor_zone, Table& table) {
    constexpr Effort kEffort = {10, 20};
    sim::Simulator phone(device + ",analysis=0,optimise=0");
    startService();
    if (!floor_find_controller()) throw std::runtime_error("no controller");

    std::string list = zoneText();
    list.pop_back();
    int32_t before = 0;
    int32_t after = 0;
    floor_levels levels{};
    const auto library = [&] {
        if (library_zone(list, before, after) != 0) throw std::runtime_error(name + " fails");
    };
    const auto floor = [&] {
        if (!floor_zone(list.data(), list.size(), &levels)) {
            throw std::runtime_error("the floor of " + name + " fails");
        }
    };
    // From here on the flash has optimised the zone, and answers every run alike.
    library();
    table.title("One zone, " + name);
    table.add(trafficRow("reads and stores", phone, library, floor));
    if (before != levels.before || after != levels.after) {
        throw std::runtime_error(name + " and its floor read different levels");
    }
    table.add(systemCallRow("system calls", countSystemCalls(library), countSystemCalls(floor), 0));
    table.add(allocatedRow("bytes allocated", library));
    table.add(costRow("CPU time", measure(library, floor, kEffort), 1.3));
}

}  // namespace

void measureZone40(const std::filesystem::path&, Table& table) {
    measureZone("ufs40:micron", "UFS40_FBO_Imp", UFS40_FBO_Imp, floor_zone40, table);
}

void measureZone31(const std::filesystem::path&, Table& table) {
    measureZone("ufs31:micron", "UFS31_FBO_Imp", UFS31_FBO_Imp, floor_zone31, table);
}

}  // namespace bench
