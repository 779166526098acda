#include <cstdio>
#include <mutex>
#include <optional>

#include "Commands.h"
#include "Session.h"

namespace fboctl {

namespace {

/** What the service has logged. */
class LogLines {
  public:
    LogReader reader() {
        return [this](char, const std::string& text) {
            const std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(text);
        };
    }

    /** From `text` to the end of the first line that contains it; empty if none does. */
    std::string find(const std::string& text) const {
        const std::lock_guard<std::mutex> lock(mutex_);
        for (const std::string& line : lines_) {
            const size_t at = line.find(text);
            if (at != std::string::npos) return line.substr(at);
        }
        return {};
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

/** What the log tells of why the controller was not found; empty if it was. */
std::string whyNoController(const LogLines& log) {
    return log.find("not an UFS device?").empty() ? "" : "this phone has no UFS host controller";
}

constexpr char kNotTold[] = "the log does not tell why";

/** The wear of the flash and whether EUA is supported, as far as they are known. */
struct WearReport {
    std::optional<int> cycles;
    std::optional<bool> eua;
};

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

/** Why FBO is not supported, as far as interface and log tell. */
std::string whyNoFbo(const Session& session, const LogLines& log) {
    if (!log.find("Failed to open fbo_support node").empty()) return "the driver has no FBO nodes";
    if (!log.find("device does not fbo").empty()) return "the driver says no, or nothing";
    const std::string controller = whyNoController(log);
    if (!controller.empty()) return controller;
    constexpr int kWornOut = 2400;
    const int cycles = askWear(session).cycles.value_or(0);
    if (cycles < kWornOut) return kNotTold;
    return "the flash is worn: " + std::to_string(cycles) + " program/erase cycles";
}

/** Why EUA is not supported, as far as the log tells. */
std::string whyNoEua(const LogLines& log) {
    const std::string row = log.find("Check Policy match");
    if (!row.empty()) return "policy row " + row.substr(row.find('('));
    if (!log.find("Open eua_support file failure").empty()) return "the driver has no EUA nodes";
    const std::string answer = log.find("eua_support is ");
    if (!answer.empty()) return "the driver says " + answer.substr(15);
    const std::string controller = whyNoController(log);
    return controller.empty() ? kNotTold : controller;
}

/** A feature's answer, with the reason if it is no. */
struct Answer {
    bool supported;
    std::string reason;

    Json::Value json() const {
        Json::Value value;
        value["supported"] = supported;
        if (!reason.empty()) value["reason"] = reason;
        return value;
    }

    void print(const char* feature) const {
        printf("%s: %s%s%s\n", feature, supported ? "supported" : "not supported",
               reason.empty() ? "" : ", ", reason.c_str());
        fflush(stdout);
    }
};

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

ExitStatus answerYesOrNo(const Options& options, const char* name, bool yes, const char* text) {
    if (options.json) {
        Json::Value result;
        result[name] = yes;
        printJson(result);
    } else {
        printf("%s\n", text);
    }
    return yes ? kDone : kNo;
}

}  // namespace

ExitStatus support(const Options& options) {
    LogLines log;
    const Session session(options, log.reader());
    const Answer fbo = askFbo(session, log);
    Json::Value result;
    result["fbo"] = fbo.json();
    if (!options.json) fbo.print("FBO");
    try {
        const Answer eua = askEua(session, log);
        result["eua"] = eua.json();
        if (!options.json) eua.print("EUA");
        if (options.json) printJson(result);
        return fbo.supported && eua.supported ? kDone : kNo;
    } catch (const CallError& error) {
        // What is known of the one feature is told before the other's error is.
        result["eua"]["error"] = error.what();
        if (options.json) printJson(result);
        throw;
    }
}

ExitStatus euaSupport(const Options& options) {
    LogLines log;
    const Session session(options, log.reader());
    const Answer eua = askEua(session, log);
    if (options.json) {
        printJson(eua.json());
    } else {
        eua.print("EUA");
    }
    return eua.supported ? kDone : kNo;
}

ExitStatus euaSize(const Options& options) {
    const Session session(options);
    const int32_t size = ask([&] { return session.service()->EUA_SupportSize(); });
    if (options.json) {
        Json::Value result;
        result["size"] = size;
        printJson(result);
    } else {
        printf("EUA size: %d\n", size);
    }
    return size != 0 ? kDone : kNo;
}

ExitStatus versionControl(const Options& options) {
    const Session session(options);
    const bool on = ask([&] { return session.service()->FBO_VersionCtrl(options.arguments[0]); });
    return answerYesOrNo(options, "on", on, on ? "FBO is on" : "FBO is off");
}

ExitStatus collectGarbage(const Options& options) {
    const Session session(options);
    const bool requested = ask([&] { return session.service()->FBO_GCADisCard(); });
    return answerYesOrNo(options, "requested", requested,
                         requested ? "Urgent garbage collection is requested"
                                   : "Urgent garbage collection cannot be requested");
}

ExitStatus wear(const Options& options) {
    const Session session(options);
    const WearReport report = askWear(session);
    if (options.json) {
        Json::Value result;
        result["cycles"] = report.cycles ? Json::Value(*report.cycles) : Json::Value::null;
        result["eua"] = report.eua ? Json::Value(*report.eua) : Json::Value::null;
        printJson(result);
    } else {
        printf("Program/erase cycles: %s\n",
               report.cycles ? std::to_string(*report.cycles).c_str() : "not known");
        if (report.eua) printf("EUA: %s\n", *report.eua ? "supported" : "not supported");
    }
    return report.cycles ? kDone : kNo;
}

ExitStatus control(const Options& options) {
    const Session session(options);
    std::string echo;
    ask([&] {
        return session.service()->FBO_stateCtl(options.command,
                                               [&](const hidl_string& text) { echo = text; });
    });
    return answerYesOrNo(options, "sent", echo == options.command, (echo + ": sent").c_str());
}

}  // namespace fboctl
