#include "bench/Traffic.h"

#include <algorithm>

namespace bench {

namespace {

std::string trafficOf(sim::Simulator& phone, const std::function<void()>& action) {
    phone.clearTrace();
    action();
    return phone.trace();
}

std::string countLines(const std::string& text) {
    return std::to_string(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

Row trafficRow(const std::string& operation, sim::Simulator& phone,
               const std::function<void()>& library, const std::function<void()>& floor) {
    phone.set("record", "1");
    const std::string made = trafficOf(phone, library);
    const std::string needed = trafficOf(phone, floor);
    phone.set("record", "0");
    phone.clearTrace();
    const bool same = made == needed && !made.empty();
    return {operation,  countLines(made), countLines(needed), same ? "the same" : "differs",
            "the same", judgeCount(same)};
}

}  // namespace bench
