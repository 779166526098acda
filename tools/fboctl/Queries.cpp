#include <cstdio>
#include <mutex>

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

std::string whyNoController(const LogLines& log) {
    if (!log.find("not an UFS device?").empty()) return "this phone has no UFS host controller";
    return {};
}

/** Why FBO is not supported, as far as the log tells. */
std::string whyNoFbo(const LogLines& log) {
    if (!log.find("Failed to open fbo_support node").empty()) return "the driver has no FBO nodes";
    if (!log.find("device does not fbo").empty()) return "the driver says no";
    const std::string controller = whyNoController(log);
    return controller.empty() ? "the flash has 2400 program/erase cycles or more" : controller;
}

/** Why EUA is not supported, as far as the log tells. */
std::string whyNoEua(const LogLines& log) {
    const std::string row = log.find("Check Policy match");
    if (!row.empty()) return "policy row " + row.substr(row.find('('));
    if (!log.find("Open eua_support file failure").empty()) return "the driver has no EUA nodes";
    const std::string answer = log.find("eua_support is ");
    return answer.empty() ? whyNoController(log) : "the driver says " + answer.substr(15);
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
    return {supported, supported ? "" : whyNoFbo(log)};
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
    if (!options.json) fbo.print("FBO");
    const Answer eua = askEua(session, log);
    if (options.json) {
        Json::Value result;
        result["fbo"] = fbo.json();
        result["eua"] = eua.json();
        printJson(result);
    } else {
        eua.print("EUA");
    }
    return fbo.supported && eua.supported ? kDone : kNo;
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
    std::string report;
    ask([&] {
        return session.service()->EUA_GetFreeSpaceAPECycle(
                [&](const hidl_string& text) { report = text; });
    });
    int cycles = 0;
    int eua = 0;
    const bool known = sscanf(report.c_str(), "%d:%d", &cycles, &eua) == 2;
    if (options.json) {
        Json::Value result;
        if (known) {
            result["cycles"] = cycles;
            result["eua"] = eua == 1;
        } else {
            result["cycles"] = Json::Value::null;
        }
        printJson(result);
    } else if (known) {
        printf("Program/erase cycles: %d, EUA: %s\n", cycles,
               eua == 1 ? "supported" : "not supported");
    } else {
        printf("The wear is not known\n");
    }
    return known ? kDone : kNo;
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
