#include "Session.h"

#include <cstdio>
#include <iostream>
#include <utility>

namespace fboctl {

namespace {

/** Hands the log to the user, if that is wanted, and to `listener`. */
LogReader makeReader(bool show, LogReader listener) {
    if (!show) return listener;
    return [listener = std::move(listener)](char priority, const std::string& text) {
        fprintf(stderr, "%c mem_fbo: %s\n", priority, text.c_str());
        if (listener) listener(priority, text);
    };
}

}  // namespace

Session::Session(const Options& options, LogReader listener)
    : platform_(startPlatform(options.sim, makeReader(options.log, std::move(listener)))),
      service_(IFbo::tryGetService()) {
    if (service_ == nullptr) throw NoService(platform_->whyNoService());
}

void printJson(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    std::cout << Json::writeString(writer, value) << "\n";
}

}  // namespace fboctl
