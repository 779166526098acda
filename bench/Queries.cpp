#include "bench/Queries.h"

#include <stdexcept>
#include <string>

#include "bench/Allocations.h"
#include "bench/PlainPhone.h"
#include "bench/Sections.h"
#include "bench/SystemCalls.h"
#include "bench/Timing.h"
#include "bench/floor.h"
#include "fbo/snapshot/Snapshot.h"

namespace bench {

const std::vector<Query>& queries() {
    static const std::vector<Query> kQueries = {
            {"FBO_isSupport", [](Fbo& service) -> int { return service.FBO_isSupport(); },
             []() -> int { return floor_fbo_support(); }, 1, true},
            {"EUA_isSupport", [](Fbo& service) -> int { return service.EUA_isSupport(); },
             []() -> int { return floor_eua_support(); }, 2, true},
            {"SnapShot_getStatus", [](Fbo& service) -> int { return service.SnapShot_getStatus(); },
             floor_snapshot_status, 1, SNAPSHOT_STATUS_COMPLETE_BACKUP},
    };
    return kQueries;
}

void measureQueries(const std::filesystem::path& plain, Table& table) {
    constexpr Effort kEffort = {2000, 50};
    PlainPhone::enter(plain);
    Fbo& service = startService();
    if (!floor_find_controller()) throw std::runtime_error("no controller");

    std::vector<Row> calls;
    std::vector<Row> allocated;
    table.title("A query on plain files: CPU time");
    for (const Query& query : queries()) {
        // Both know the controller now, and the service the wear.
        if (query.library(service) != query.answer || query.floor() != query.answer) {
            throw std::runtime_error(std::string(query.name) + " answers wrongly");
        }
        const auto library = [&] { query.library(service); };
        const auto floor = [&] { query.floor(); };
        table.add(costRow(query.name, measure(library, floor, kEffort), 2));
        calls.push_back(systemCallRow(query.name, countSystemCalls(library),
                                      countSystemCalls(floor), query.nodes));
        allocated.push_back(allocatedRow(query.name, library));
    }
    table.title("A query: system calls");
    for (const Row& row : calls) table.add(row);
    table.title("A query: bytes allocated");
    for (const Row& row : allocated) table.add(row);
}

}  // namespace bench
