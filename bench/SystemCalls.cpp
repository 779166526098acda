#include "bench/SystemCalls.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <numeric>
#include <stdexcept>

#include "sim/Tracee.h"

namespace bench {

namespace {

/** Neither the library nor the floor asks for this. */
constexpr long kMarker = SYS_getppid;

std::string nameOf(long number) {
    static const std::map<long, const char*> kNames = {
            {SYS_brk, "brk"},       {SYS_close, "close"},   {SYS_futex, "futex"},
            {SYS_lseek, "lseek"},   {SYS_mmap, "mmap"},     {SYS_munmap, "munmap"},
            {SYS_openat, "openat"}, {SYS_pread64, "pread"}, {SYS_read, "read"},
            {SYS_write, "write"},
    };
    const auto name = kNames.find(number);
    return name == kNames.end() ? "call " + std::to_string(number) : name->second;
}

/** How much more often the library makes each call than the floor; below 0: less often. */
SystemCalls difference(SystemCalls library, const SystemCalls& floor) {
    for (const auto& [number, count] : floor) library[number] -= count;
    return library;
}

/** The calls that are made more or less often, by their names. */
std::string describe(const SystemCalls& difference) {
    std::string text;
    for (const auto& [number, count] : difference) {
        if (count == 0) continue;
        text += (text.empty() ? "" : ", ") + nameOf(number) + (count > 0 ? " +" : " ") +
                std::to_string(count);
    }
    return text.empty() ? "the same" : text;
}

}  // namespace

SystemCalls countSystemCalls(const std::function<void()>& action) {
    sim::Tracee process([&action] {
        syscall(kMarker);
        action();
        syscall(kMarker);
        return 0;
    });
    SystemCalls calls;
    int markers = 0;
    while (const auto call = process.next()) {
        if (call->thread != process.pid()) continue;
        if (call->number == kMarker) {
            ++markers;
        } else if (markers == 1) {
            ++calls[call->number];
        }
    }
    if (markers != 2 || process.status() != 0) {
        throw std::runtime_error("the watched process did not get through");
    }
    return calls;
}

int total(const SystemCalls& calls) {
    return std::accumulate(calls.begin(), calls.end(), 0,
                           [](int sum, const auto& call) { return sum + call.second; });
}

Row systemCallRow(const std::string& operation, const SystemCalls& library,
                  const SystemCalls& floor, int more) {
    const SystemCalls differing = difference(library, floor);
    int beyond = 0;
    for (const auto& [number, count] : differing) beyond += std::max(count, 0);
    Row row{operation, std::to_string(total(library)), std::to_string(total(floor)),
            describe(differing)};
    row.wanted = "<= floor" + (more == 0 ? "" : " + " + std::to_string(more));
    row.verdict = judgeCount(beyond <= more);
    return row;
}

}  // namespace bench
