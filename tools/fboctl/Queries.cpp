#include <cstdio>

#include "Answers.h"
#include "Commands.h"
#include "Session.h"

namespace fboctl {

namespace {

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
        // The answer for FBO is shown although EUA ended with an error.
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
    if (!options.sim.device.empty()) {
        throw UsageError(options.command + ": a device of its own has no run to tell; start both " +
                         "in \"run\", or the device by \"serve\", and leave --sim out");
    }
    const Session session(options);
    std::string echo;
    ask([&] {
        return session.service()->FBO_stateCtl(options.command,
                                               [&](const hidl_string& text) { echo = text; });
    });
    return answerYesOrNo(options, "sent", echo == options.command, (echo + ": sent").c_str());
}

}  // namespace fboctl
