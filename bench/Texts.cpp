#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>

#include "bench/Allocations.h"
#include "bench/PlainPhone.h"
#include "bench/Sections.h"
#include "bench/Service.h"
#include "bench/SystemCalls.h"
#include "bench/Timing.h"
#include "bench/floor.h"

namespace bench {

namespace {

/** A method that takes a text, and the texts that it is measured with. */
struct Taker {
    const char* title;
    std::string (*text)(size_t size);
    bool (*library)(Fbo& service, const hidl_string& text);
    bool (*floor)(const char* text, size_t length);
};

/** `item` again and again, `size` bytes in all. */
std::string repeat(const std::string& item, size_t size) {
    std::string text;
    while (text.size() < size) text += item;
    text.resize(size);
    return text;
}

/** 16 bytes an item. */
std::string manyItems(size_t size) {
    return repeat("81920000,819200:", size);
}

std::string oneItem(size_t size) {
    return repeat("81920000,819200,", size);
}

/** Items of 16 bytes that are for other versions; the last one switches FBO on. */
std::string rules(size_t size) {
    const std::string last = "1.0:ON";
    return repeat("2.0:OFF-UNTIL-3,", size - last.size() - 1) + "," + last;
}

bool erase(Fbo& service, const hidl_string& list) {
    return service.EUA_SendEraseCmd(list);
}

const Taker kTakers[] = {
        {"EUA_SendEraseCmd, lists of 1 KiB to 1 MiB, 16 bytes an item", manyItems, erase,
         floor_erase},
        {"EUA_SendEraseCmd, one item of 1 KiB to 1 MiB", oneItem, erase, floor_erase},
        {"FBO_VersionCtrl, rules of 1 KiB to 1 MiB, 16 bytes an item", rules,
         [](Fbo& service, const hidl_string& text) -> bool {
             return service.FBO_VersionCtrl(text);
         },
         floor_version},
};

/** A call by the library, and by the floor, with the same text. */
struct Calls {
    std::function<void()> library;
    std::function<void()> floor;
};

Calls callsWith(const Taker& taker, Fbo& service, const std::string& text) {
    const auto check = [&taker](bool done) {
        if (!done) throw std::runtime_error(std::string(taker.title) + ": no");
    };
    return {[=, &taker, &service, given = hidl_string(text)] {
                check(taker.library(service, given));
            },
            [=, &taker] { check(taker.floor(text.data(), text.size())); }};
}

void measureTaker(const Taker& taker, Fbo& service, Table& table) {
    constexpr int kRounds = 5;
    constexpr size_t kShort = 16;
    const auto measureAt = [&](size_t size) {
        const Calls calls = callsWith(taker, service, taker.text(size));
        // As many calls as add up to as much text for every size, or to about as much time.
        const int repeated = static_cast<int>(std::min(sizes().back() / size, size_t{1000}));
        return measure(calls.library, calls.floor, {repeated, kRounds});
    };
    Curve library;
    Curve floor;
    Cost cost{};
    double most_held = 0;
    for (const size_t size : sizes()) {
        cost = measureAt(size);
        library.emplace_back(size, cost.library);
        floor.emplace_back(size, cost.floor);
        const size_t peak =
                countAllocations(callsWith(taker, service, taker.text(size)).library).peak;
        most_held = std::max(most_held, static_cast<double>(peak) / static_cast<double>(size));
    }
    const Cost fixed = measureAt(kShort);
    const Calls counted = callsWith(taker, service, taker.text(1 << 16));

    table.title(taker.title);
    table.add(costRow("CPU time, 1 MiB", cost, 0));
    table.add(exponentRow("exponent of CPU time", exponent(growth(library, fixed.library)),
                          exponent(growth(floor, fixed.floor)), Figure::kTime));
    table.add(systemCallRow("system calls, 64 KiB", countSystemCalls(counted.library),
                            countSystemCalls(counted.floor), 0));
    table.add({"most memory at a time, in texts", decimal(most_held, 2)});
}

}  // namespace

void measureTexts(const std::filesystem::path& plain, Table& table) {
    PlainPhone::enter(plain);
    Fbo& service = startService();
    if (!floor_find_controller()) throw std::runtime_error("no controller");
    for (const Taker& taker : kTakers) measureTaker(taker, service, table);
}

}  // namespace bench
