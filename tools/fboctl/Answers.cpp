#include "Answers.h"

#include <cstdio>

#include "fbo/defrag/Capability.h"

namespace fboctl {

namespace {

/** What the log tells of why the controller was not found; empty if it was. */
std::string whyNoController(const LogLines& log) {
    return log.find("not an UFS device?").empty() ? "" : "this phone has no UFS host controller";
}

constexpr char kNotTold[] = "the log does not tell why";

/** Why FBO is not supported, as far as interface and log tell. */
std::string whyNoFbo(const Session& session, const LogLines& log) {
    if (!log.find("Failed to open fbo_support node").empty()) return "the driver has no FBO nodes";
    if (!log.find("device does not fbo").empty()) return "the driver says no, or nothing";
    std::string controller = whyNoController(log);
    if (!controller.empty()) return controller;
    const int cycles = askWear(session).cycles.value_or(0);
    if (cycles < vendor::nivora::hardware::fbo::implementation::kWornOut) return kNotTold;
    return "the flash is worn: " + std::to_string(cycles) + " program/erase cycles";
}

/** Why EUA is not supported, as far as the log tells. */
std::string whyNoEua(const LogLines& log) {
    const std::string row = log.find("Check Policy match");
    if (!row.empty()) return "policy row " + row.substr(row.find('('));
    if (!log.find("Open eua_support file failure").empty()) return "the driver has no EUA nodes";
    const std::string answer = log.find("eua_support is ");
    if (!answer.empty()) return "the driver says " + answer.substr(15);
    std::string controller = whyNoController(log);
    return controller.empty() ? kNotTold : controller;
}

}  // namespace

Json::Value Answer::json() const {
    Json::Value value;
    value["supported"] = supported;
    if (!reason.empty()) value["reason"] = reason;
    return value;
}

void Answer::print(const char* feature) const {
    printf("%s: %s%s%s\n", feature, supported ? "supported" : "not supported",
           reason.empty() ? "" : ", ", reason.c_str());
    fflush(stdout);
}

WearReport askWear(const Session& session) {
    std::string text;
    ask([&] {
        return session.service()->EUA_GetFreeSpaceAPECycle(
                [&](const hidl_string& report) { text = report; });
    });
    int cycles = 0;
    int eua = 0;
    if (sscanf(text.c_str(), "%d:%d", &cycles, &eua) != 2) return {};
    // -2 stands for wear that has not been read.
    return {cycles == -2 ? std::nullopt : std::optional(cycles), eua == 1};
}

Answer askFbo(const Session& session, const LogLines& log) {
    const bool supported = ask([&] { return session.service()->FBO_isSupport(); });
    session.waitForLog();
    return {supported, supported ? "" : whyNoFbo(session, log)};
}

Answer askEua(const Session& session, const LogLines& log) {
    const bool supported = ask([&] { return session.service()->EUA_isSupport(); });
    session.waitForLog();
    return {supported, supported ? "" : whyNoEua(log)};
}

}  // namespace fboctl
