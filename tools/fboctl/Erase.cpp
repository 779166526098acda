#include <algorithm>
#include <cstdio>

#include "Commands.h"
#include "LogLine.h"
#include "Meter.h"
#include "Session.h"

namespace fboctl {

namespace {

/** How many items the service makes of `list`: a ":" at the end begins none. */
size_t countItems(const std::string& list) {
    if (list.empty()) return 0;
    return std::count(list.begin(), list.end(), ':') + (list.back() == ':' ? 0 : 1);
}

}  // namespace

ExitStatus euaErase(const Options& options) {
    const std::string& list = options.arguments[0];
    const size_t items = countItems(list);
    Meter meter("item");
    size_t sent = 0;
    const Session session(options, [&](char, const std::string& text) {
        if (messageAfter(text, "EUA_SendEraseCmd", "send erase lba ")) meter.begin(++sent, items);
    });
    const bool done = ask([&] { return session.service()->EUA_SendEraseCmd(list); });
    session.waitForLog();
    meter.finish();
    if (options.json) {
        Json::Value result;
        result["sent"] = done;
        result["items"] = static_cast<Json::UInt64>(done ? items : 0);
        printJson(result);
    } else if (done) {
        printf("Items gone through: %zu; what the driver made of them is not told\n", items);
    } else {
        printf("Nothing sent: the request node cannot be opened\n");
    }
    return done ? kDone : kNo;
}

}  // namespace fboctl
