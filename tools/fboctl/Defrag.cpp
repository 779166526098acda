#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <utility>

#include <android-base/file.h>

#include "Commands.h"
#include "Extents.h"
#include "Progress.h"
#include "Session.h"
#include "TriggerRun.h"

namespace fboctl {

namespace {

void printTable(const std::vector<FileExtents>& files) {
    printf("%8s %10s %12s  %s\n", "extents", "blocks", "first block", "file");
    for (const FileExtents& file : files) {
        if (!file.error.empty()) {
            fprintf(stderr, "fboctl: %s: %s\n", file.path.c_str(), file.error.c_str());
            continue;
        }
        uint64_t blocks = 0;
        for (const BlockRange& range : file.ranges) blocks += range.count;
        const std::string first =
                file.ranges.empty() ? "-" : std::to_string(file.ranges.front().start);
        printf("%8zu %10llu %12s  %s\n", file.ranges.size(),
               static_cast<unsigned long long>(blocks), first.c_str(), file.path.c_str());
    }
    fflush(stdout);
}

Json::Value describe(const std::vector<FileExtents>& files) {
    Json::Value list(Json::arrayValue);
    for (const FileExtents& file : files) {
        Json::Value entry;
        entry["path"] = file.path.string();
        if (!file.error.empty()) {
            entry["error"] = file.error;
        } else {
            entry["ranges"] = Json::Value(Json::arrayValue);
            for (const BlockRange& range : file.ranges) {
                Json::Value pair(Json::arrayValue);
                pair.append(static_cast<Json::UInt64>(range.start));
                pair.append(static_cast<Json::UInt64>(range.count));
                entry["ranges"].append(pair);
            }
        }
        list.append(entry);
    }
    return list;
}

std::string counted(size_t count, const char* unit) {
    return std::to_string(count) + " " + unit + (count == 1 ? "" : "s");
}

/** Blocks SIGINT in all threads that are started from now on; one of them waits for it. */
void blockInterrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void print(const char* what, int64_t before, int64_t after) {
    printf("%s before: %lld, after: %lld\n", what, static_cast<long long>(before),
           static_cast<long long>(after));
}

void show(const RunResult& run) {
    if (run.refused) printf("The service did not take the request.\n");
    if (run.stopped)
        printf("Stopped after %s; the figures are partial.\n", counted(run.zones, "zone").c_str());
    if (run.unseen) printf("The log shows no zone, so whether one failed is not known.\n");
    if (run.failed_zones > 0) printf("%zu of %zu zones failed.\n", run.failed_zones, run.zones);
    if (run.unmeasured_zones > 0) {
        printf("%zu of %zu zones not measured: for them, 0 is counted after.\n",
               run.unmeasured_zones, run.zones);
    }
    if (run.mapping_failed) printf("The linear mapping failed.\n");
    print("Fragmentation", run.before, run.after);
    const size_t unmeasured = run.failed_zones + run.unmeasured_zones;
    if (unmeasured == 0 || unmeasured == run.zones) return;
    if (run.measured) {
        print("Of the zones that were measured,", run.measured->before, run.measured->after);
    } else {
        printf("What the measured zones count for is not known.\n");
    }
}

void showJson(const RunResult& run, Json::Value result) {
    const auto zones = [&](size_t count) {
        return run.unseen ? Json::Value::null : Json::Value(Json::UInt64{count});
    };
    result["before"] = Json::Int64{run.before};
    result["after"] = Json::Int64{run.after};
    result["zones"] = zones(run.zones);
    result["failed_zones"] = zones(run.failed_zones);
    result["unmeasured_zones"] = zones(run.unmeasured_zones);
    result["measured"] = Json::Value::null;
    if (run.measured) {
        result["measured"]["before"] = Json::Int64{run.measured->before};
        result["measured"]["after"] = Json::Int64{run.measured->after};
    }
    result["stopped"] = run.stopped;
    result["refused"] = run.refused;
    result["mapping_failed"] = run.mapping_failed;
    printJson(result);
}

/** Runs a request and shows its result; JSON is added to `result`. */
ExitStatus runAndShow(const Options& options, const std::string& request, Json::Value result) {
    blockInterrupts();
    Progress progress;
    const Session session(options, [&](char, const std::string& text) { progress.take(text); });
    const RunResult run = runTrigger(session, request, progress);
    if (options.json) {
        showJson(run, std::move(result));
    } else {
        show(run);
    }
    return run.ok() ? kDone : kNo;
}

/** The ranges that the user gave, as the service wants them. */
std::string readRequest(const Options& options) {
    std::string request = options.arguments[0];
    if (request == "-") {
        android::base::ReadFdToString(STDIN_FILENO, &request);
    }
    if (options.raw) return request;
    request.erase(std::remove_if(request.begin(), request.end(),
                                 [](unsigned char c) { return isspace(c); }),
                  request.end());
    if (!request.empty() && request.back() != ',') request += ',';
    return request;
}

}  // namespace

ExitStatus defrag(const Options& options) {
    // Before the session: a simulated device hides the files of the host.
    const std::vector<FileExtents> files = collectExtents(
            {options.arguments.begin(), options.arguments.end()}, options.first_block);
    std::string request;
    for (const FileExtents& file : files) appendRanges(request, file.ranges);

    Json::Value result;
    if (options.json) {
        result["files"] = describe(files);
    } else {
        printTable(files);
    }
    if (request.empty()) {
        if (options.json) printJson(result);
        fprintf(stderr, "fboctl: none of this lies in blocks of the unit\n");
        return kNo;
    }
    return runAndShow(options, request, std::move(result));
}

ExitStatus trigger(const Options& options) {
    return runAndShow(options, readRequest(options), Json::Value());
}

}  // namespace fboctl
