#include "Erase.h"

#include <algorithm>
#include <cstdio>

#include <android-base/strings.h>

#include "Commands.h"
#include "LogLine.h"
#include "Meter.h"
#include "Parts.h"

namespace fboctl {

namespace {

void show(const EraseResult& result, size_t items) {
    if (result.sent) {
        printf("Items gone through: %zu; what the driver made of them is not told\n", items);
    } else if (result.items == 0) {
        printf("Nothing sent: the request node cannot be opened\n");
    } else {
        printf("Items gone through: %zu of %zu; then the request node could not be opened\n",
               result.items, items);
    }
}

/** Throws UsageError unless `list` has an item, and none is empty. */
void checkItems(std::string_view list) {
    android::base::ConsumeSuffix(&list, ":");
    for (const std::string& item : android::base::Split(std::string(list), ":")) {
        if (item.empty()) {
            throw UsageError("eua erase: a request is empty; there is one \":\" between two");
        }
    }
}

}  // namespace

size_t countItems(std::string_view list) {
    if (list.empty()) return 0;
    return std::count(list.begin(), list.end(), ':') + (list.back() == ':' ? 0 : 1);
}

EraseResult sendErase(const Session& session, const std::string& list) {
    EraseResult result;
    // A part ends with its last ":", which begins no further item for the service.
    for (const std::string_view part : cutIntoParts(list, ':', 1)) {
        result.sent = ask([&] { return session.service()->EUA_SendEraseCmd(std::string(part)); });
        if (!result.sent) break;
        result.items += countItems(part);
    }
    return result;
}

ExitStatus euaErase(const Options& options) {
    const std::string& list = options.arguments[0];
    checkItems(list);
    const size_t items = countItems(list);
    Meter meter("item", !options.json);
    size_t begun = 0;
    const Session session(options, [&](char, const std::string& text) {
        if (messageAfter(text, "EUA_SendEraseCmd", "send erase lba ")) meter.begin(++begun, items);
    });
    // The service sends requests to any device that has the node.
    const bool supported = ask([&] { return session.service()->EUA_isSupport(); });
    const EraseResult result = sendErase(session, list);
    session.waitForLog();
    meter.finish();
    if (options.json) {
        Json::Value json;
        json["sent"] = result.sent;
        json["supported"] = supported;
        json["items"] = static_cast<Json::UInt64>(result.items);
        printJson(json);
    } else {
        show(result, items);
        if (!supported) printf("EUA is not supported here: nothing is erased by that\n");
    }
    return result.sent && supported ? kDone : kNo;
}

}  // namespace fboctl
