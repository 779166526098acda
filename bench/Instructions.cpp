#include <unistd.h>

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/PlainPhone.h"
#include "bench/Queries.h"
#include "bench/Sections.h"
#include "bench/floor.h"

/** A query, by a name that valgrind can be told to count in. */
extern "C" [[gnu::noinline]] int collected_query(const bench::Query& query, bench::Fbo& service,
                                                 bool by_floor) {
    return by_floor ? query.floor() : query.library(service);
}

namespace bench {

namespace {

/** The instructions of one query; 0 if they cannot be counted. */
long countInstructions(const std::filesystem::path& plain, size_t query, bool by_floor) {
    const std::string root = plain.string();
    const std::string command = "valgrind --tool=callgrind --vgdb=no --callgrind-out-file=" + root +
                                "/profile --toggle-collect=collected_query " +
                                std::filesystem::read_symlink("/proc/self/exe").string() +
                                " --collect " + root + " " + std::to_string(query) +
                                (by_floor ? " floor" : " library") + " 2>&1";
    const std::unique_ptr<FILE, int (*)(FILE*)> run(popen(command.c_str(), "re"), pclose);
    long instructions = 0;
    char line[1024];
    while (run && fgets(line, sizeof(line), run.get()) != nullptr) {
        sscanf(line, "==%*d== Collected : %ld", &instructions);
    }
    return instructions;
}

}  // namespace

void measureInstructions(const std::filesystem::path& plain, Table& table) {
    table.title("A query: instructions, those of the kernel not counted");
    for (size_t i = 0; i < queries().size(); ++i) {
        const long library = countInstructions(plain, i, false);
        const long floor = countInstructions(plain, i, true);
        if (library == 0 || floor == 0) {
            table.add({queries()[i].name, "-"});
            continue;
        }
        table.add({queries()[i].name, std::to_string(library), std::to_string(floor),
                   decimal(static_cast<double>(library) / static_cast<double>(floor), 1)});
    }
}

void runCollected(const std::filesystem::path& plain, int query, bool by_floor) {
    PlainPhone::enter(plain);
    Fbo& service = startService();
    if (!floor_find_controller()) throw std::runtime_error("no controller");
    const Query& chosen = queries().at(query);
    // Once before, to know what is remembered.
    chosen.library(service);
    chosen.floor();
    collected_query(chosen, service, by_floor);
}

}  // namespace bench
