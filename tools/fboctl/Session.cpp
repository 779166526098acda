#include "Session.h"

#include <cstdio>
#include <ctime>
#include <iostream>
#include <utility>

namespace fboctl {

namespace {

/** Hands the log to the user, if that is wanted, and to `listener`. */
LogReader makeReader(bool show, LogReader listener) {
    if (!show) return listener;
    // As the trace has it, in the device's time. It begins with the first line.
    return [listener = std::move(listener), start = time_t{0}](char priority,
                                                               const std::string& text) mutable {
        const time_t now = time(nullptr);
        if (start == 0) start = now;
        fprintf(stderr, "%8ld s  %c mem_fbo: %s\n", static_cast<long>(now - start), priority,
                text.c_str());
        if (listener) listener(priority, text);
    };
}

}  // namespace

Session::Session(const Options& options, LogReader listener)
    : platform_(startPlatform(options.sim, makeReader(options.log, std::move(listener)))) {
    platform_->startService();
    service_ = IFbo::tryGetService();
    if (service_ == nullptr) throw NoService(platform_->whyNoService());
}

void printJson(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    std::cout << Json::writeString(writer, value) << "\n";
}

}  // namespace fboctl
