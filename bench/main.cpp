#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <stdexcept>
#include <string>

#include "bench/PlainPhone.h"
#include "bench/Sections.h"

namespace bench {

namespace {

using Section = void (*)(const std::filesystem::path& plain, Table& table);

const Section kSections[] = {measureQueries,  measureInstructions, measureZone40, measureZone31,
                             measureRequests, measureTexts,        measureStartUp};

void writeAll(int fd, const std::string& text) {
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t size = write(fd, text.data() + written, text.size() - written);
        if (size <= 0) throw std::runtime_error("the figures cannot be handed over");
        written += size;
    }
}

std::string readAll(int fd) {
    std::string text;
    char chunk[4096];
    ssize_t size;
    while ((size = read(fd, chunk, sizeof(chunk))) > 0) text.append(chunk, size);
    return text;
}

/** Runs `action` and ends the process, whose service would not let it end otherwise. */
template <typename Action>
[[noreturn]] void runAndExit(Action action) {
    try {
        action();
    } catch (const std::exception& error) {
        fprintf(stderr, "fbo_bench: %s\n", error.what());
        _exit(EXIT_FAILURE);
    }
    _exit(EXIT_SUCCESS);
}

/** Runs a section in a process of its own and adds its figures to `table`. */
void runApart(Section section, const std::filesystem::path& plain, Table& table) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    const pid_t pid = fork();
    if (pid < 0) throw std::runtime_error("no process");
    if (pid == 0) {
        close(ends[0]);
        runAndExit([&] {
            Table figures;
            section(plain, figures);
            writeAll(ends[1], figures.pack());
        });
    }
    close(ends[1]);
    table.unpack(readAll(ends[0]));
    close(ends[0]);
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || status != 0) {
        throw std::runtime_error("a section did not get through");
    }
}

/**
 * Keeps this process, and those that it makes, on one processor: a simulated device that answers
 * from another one makes its client pay for waking that.
 */
void stayOnOneProcessor() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(sched_getcpu(), &processors);
    if (sched_setaffinity(0, sizeof(processors), &processors) != 0) {
        throw std::runtime_error("the system does not let a process choose its processor");
    }
}

/** Measures and prints everything. Whether no figure is missed. */
bool runAll() {
    stayOnOneProcessor();
    const PlainPhone phone;
    // It looks at the machine, which the phones do not show.
    benchmark::CPUInfo::Get();
    Table table;
    for (const Section section : kSections) runApart(section, phone.root(), table);
    fputs(table.format().c_str(), stdout);
    return table.nothingMissed();
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    if (geteuid() != 0) {
        fprintf(stderr, "fbo_bench: needs root, or a user namespace (unshare -Urm)\n");
        return EXIT_FAILURE;
    }
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "--collect" && argc == 5) {
        runAndExit([&] { runCollected(argv[2], atoi(argv[3]), argv[4] == std::string("floor")); });
    }
    if (!mode.empty()) {
        fprintf(stderr, "fbo_bench: takes no arguments\n");
        return EXIT_FAILURE;
    }
    try {
        if (runAll()) return EXIT_SUCCESS;
        fprintf(stderr, "fbo_bench: figures are missed\n");
    } catch (const std::exception& error) {
        fprintf(stderr, "fbo_bench: %s\n", error.what());
    }
    return EXIT_FAILURE;
}
