/*
 * Measures the library beside the floor, on the phone that its first argument names:
 *
 *     fbo_bench query     FBO_isSupport on plain files, which cost next to nothing
 *     fbo_bench ufs40     FBO_trigger on a simulated device that is done at once, with requests of
 *     fbo_bench ufs31     1 KiB, which is a zone, to 1 MiB
 *
 * It takes Google Benchmark's options too. With SIDE, KIB and TIMES behind the phone it measures
 * nothing: "library" or "floor" makes so many calls, for a tracer to count.
 */

#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>

#include "bench/Memory.h"
#include "bench/floor.h"
#include "fbo/Fbo.h"
#include "host/LogSink.h"
#include "sim/Simulator.h"

namespace bench {

namespace {

using namespace std::string_literals;
using vendor::nivora::hardware::fbo::implementation::Fbo;
using vendor::nivora::hardware::fbo::implementation::hidl_string;

/** A request of so many KiB: a zone again and again, so that the device has the same to do. */
const hidl_string& requestOf(size_t kib) {
    // As many ranges as the driver's list holds; the first ones have a digit more, to fill a KiB.
    constexpr int kRanges = 127;
    constexpr int kLonger = 8;
    // Kept, so that what is made here does not count among the memory of a call.
    static std::map<size_t, hidl_string> requests;
    hidl_string& request = requests[kib];
    if (!request.empty()) return request;
    std::string zone;
    for (int i = 0; i < kRanges; ++i) {
        zone += std::to_string(i < kLonger ? 20000 + 50 * i : 1000 + 50 * i) + ",16,";
    }
    std::string text;
    for (size_t i = 0; i < kib; ++i) text += zone;
    return request = text;
}

/** What is measured on one phone. Either side tells whether its call got through. */
struct Measured {
    const char* phone;
    /** Of the simulator; none: plain files. */
    const char* device;
    /** Up to which size requests are measured. */
    int most_kib;
    bool (*library)(Fbo& service, const hidl_string& request);
    bool (*floor)(const hidl_string& request);
};

bool triggerLibrary(Fbo& service, const hidl_string& request) {
    bool answered = false;
    service.FBO_trigger(request, [&](const hidl_string& answer) { answered = answer.size() > 0; });
    return answered;
}

bool triggerFloor(const hidl_string& request) {
    long before = 0;
    long after = 0;
    return floor_request(request.c_str(), request.size(), &before, &after);
}

constexpr Measured kMeasured[] = {
        {"query", nullptr, 1,
         [](Fbo& service, const hidl_string&) -> bool { return service.FBO_isSupport(); },
         [](const hidl_string&) { return floor_query(); }},
        {"ufs40", "ufs40:micron,linear=0", 1024, triggerLibrary, triggerFloor},
        {"ufs31", "ufs31:micron,ranges=127", 1, triggerLibrary, triggerFloor},
};

const Measured& find(const char* phone) {
    for (const Measured& measured : kMeasured) {
        if (strcmp(measured.phone, phone) == 0) return measured;
    }
    throw std::runtime_error("the phones: query, ufs40, ufs31");
}

/** Makes plain files in memory all that this process sees: nodes that answer at once. */
void enterPlainFiles() {
    // The file system is mounted nowhere, so it goes with the process. In a network namespace of
    // its own no uevent of the machine wakes the service.
    const int made = fsopen("tmpfs", FSOPEN_CLOEXEC);
    if (fsconfig(made, FSCONFIG_CMD_CREATE, nullptr, nullptr, 0) != 0 ||
        fchdir(fsmount(made, FSMOUNT_CLOEXEC, 0)) != 0 || chroot(".") != 0 ||
        unshare(CLONE_NEWNET) != 0) {
        throw std::system_error(errno, std::generic_category(), "plain files; try as root");
    }
    const std::pair<std::filesystem::path, std::string> kFiles[] = {
            {"/sys/bus/platform/drivers/ufshcd-qcom/1d84000.ufshc/ufsfbo/fbo_support", "1\n"},
            {"/sys/class/block/sda/device/vendor", "SAMSUNG \n"},
            {"/sys/class/qe_memory/qe_memory_device/ufshcd0/hr", std::string(1024, '0')}};
    for (const auto& [path, text] : kFiles) {
        std::filesystem::create_directories(path.parent_path());
        if (!(std::ofstream(path) << text).flush()) throw std::runtime_error(path.string());
    }
}

/** A call of "library" or "floor" with a request of `kib`. It throws if it does not get through. */
std::function<void()> callOf(const Measured& measured, const std::string& side, Fbo& service,
                             size_t kib) {
    const bool by_library = side == "library";
    if (!by_library && side != "floor") throw std::runtime_error("the sides: library, floor");
    return [=, &measured, &service, &request = requestOf(kib)] {
        if (by_library ? measured.library(service, request) : measured.floor(request)) return;
        throw std::runtime_error("a call of the " + side + " does not get through");
    };
}

std::string trafficOf(sim::Simulator& device, const std::function<void()>& call) {
    device.clearTrace();
    call();
    return device.trace();
}

/** The floor is one only if it reads and stores what the library does, line by line. */
void compareTraffic(const Measured& measured, Fbo& service, sim::Simulator& device) {
    constexpr size_t kKib = 4;
    device.set("record", "1");
    const std::string library = trafficOf(device, callOf(measured, "library", service, kKib));
    const std::string floor = trafficOf(device, callOf(measured, "floor", service, kKib));
    device.set("record", "0");
    if (library.empty() || library != floor) {
        throw std::runtime_error("library and floor differ in what they read or store:\n" +
                                 library + "and\n" + floor);
    }
}

void registerSide(const Measured& measured, const std::string& side, Fbo& service) {
    constexpr int kRepetitions = 7;
    constexpr double kSeconds = 0.02;
    const std::string name = side + "/" + measured.phone;
    auto* const benchmark = benchmark::RegisterBenchmark(
            name.c_str(), [&measured, side, &service](benchmark::State& state) {
                const auto call = callOf(measured, side, service, state.range(0));
                for (auto _ : state) call();
                state.SetComplexityN(state.range(0));
            });
    benchmark->RangeMultiplier(4)->Range(1, measured.most_kib);
    benchmark->Unit(benchmark::kMicrosecond)->MinTime(kSeconds)->Repetitions(kRepetitions);
    if (measured.most_kib > 1) benchmark->Complexity();
}

void run(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (argc != 2 && argc != 5) throw std::runtime_error("takes PHONE [SIDE KIB TIMES]");
    const Measured& measured = find(argv[1]);
    // It looks at the machine, of which the phone shows nothing.
    benchmark::CPUInfo::Get();
    std::unique_ptr<sim::Simulator> device;
    if (measured.device == nullptr) {
        enterPlainFiles();
    } else {
        device = std::make_unique<sim::Simulator>(measured.device + ",analysis=0,optimise=0"s);
    }
    host::setLogSink(nullptr);
    // It stays until the process ends, as its thread does.
    Fbo& service = *new Fbo;
    service.incStrong(nullptr);
    // From its first call on the library knows the wear, and the flash has optimised the zone.
    callOf(measured, "library", service, 1)();

    if (argc == 5) {
        const auto call = callOf(measured, argv[2], service, std::stoul(argv[3]));
        for (int left = std::stoi(argv[4]); left > 0; --left) call();
        return;
    }
    if (device) compareTraffic(measured, service, *device);
    reportMemory();
    registerSide(measured, "library", service);
    registerSide(measured, "floor", service);
    benchmark::RunSpecifiedBenchmarks();
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    try {
        bench::run(argc, argv);
        return EXIT_SUCCESS;
    } catch (const std::exception& error) {
        fprintf(stderr, "fbo_bench: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
