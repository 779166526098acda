#include <algorithm>
#include <cctype>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <iterator>
#include <memory>

#include <json/json.h>

#include "Extents.h"
#include "Options.h"
#include "Platform.h"
#include "Progress.h"
#include "Run.h"

namespace fboctl {

namespace {

using ::android::hardware::hidl_string;

void printJson(const Json::Value& value) {
    Json::StreamWriterBuilder writer;
    writer["indentation"] = "  ";
    std::cout << Json::writeString(writer, value) << "\n";
}

/** Keeps Ctrl-C from every thread but the one that waits for it. */
void blockInterrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

/** A command on its way: the platform that it runs on and the service that it asks. */
class Session {
  public:
    /** @param progress is told what the service logs; may be null. */
    explicit Session(const Options& options, Progress* progress = nullptr)
        : options_(options), platform_(startPlatform(options.sim, logReader(progress))) {
        service_ = IFbo::getService();
        if (service_ == nullptr) throw CallError("there is no service; on a host use --sim");
    }

    ExitStatus support() const;
    ExitStatus control() const;
    ExitStatus trigger(const std::string& request, Progress& progress, Json::Value result) const;

  private:
    LogReader logReader(Progress* progress) const {
        if (progress == nullptr && !options_.log) return {};
        return [log = options_.log, progress](char priority, const std::string& text) {
            if (log) fprintf(stderr, "%c mem_fbo: %s\n", priority, text.c_str());
            if (progress != nullptr) progress->take(text);
        };
    }

    const Options& options_;
    const std::unique_ptr<Platform> platform_;
    sp<IFbo> service_;
};

ExitStatus Session::support() const {
    const bool supported = ask([&] { return service_->FBO_isSupport(); });
    if (options_.json) {
        Json::Value result;
        result["fbo"] = supported;
        printJson(result);
    } else {
        printf("FBO: %s\n", supported ? "supported" : "not supported");
    }
    return supported ? kDone : kNo;
}

ExitStatus Session::control() const {
    std::string echo;
    ask([&] {
        return service_->FBO_stateCtl(options_.command,
                                      [&](const hidl_string& text) { echo = text; });
    });
    if (options_.json) {
        Json::Value result;
        result["sent"] = echo;
        printJson(result);
    } else {
        printf("%s: sent\n", echo.c_str());
    }
    return echo == options_.command ? kDone : kNo;
}

ExitStatus Session::trigger(const std::string& request, Progress& progress,
                            Json::Value result) const {
    const RunResult run = runTrigger(service_, request, progress);
    progress.finish();
    if (options_.json) {
        result["before"] = static_cast<Json::Int64>(run.before);
        result["after"] = static_cast<Json::Int64>(run.after);
        result["zones"] = static_cast<Json::UInt64>(run.zones);
        result["failed_zones"] = static_cast<Json::UInt64>(run.failed_zones);
        result["stopped"] = run.stopped;
        result["refused"] = run.refused;
        printJson(result);
    } else {
        if (run.refused) printf("The service did not take the request.\n");
        if (run.stopped) printf("Stopped after %zu zones.\n", run.zones);
        if (run.failed_zones > 0) printf("%zu of %zu zones failed.\n", run.failed_zones, run.zones);
        printf("Fragmentation before: %lld, after: %lld\n", static_cast<long long>(run.before),
               static_cast<long long>(run.after));
    }
    return run.ok() ? kDone : kNo;
}

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

ExitStatus trigger(const Options& options, const std::string& request, Json::Value result) {
    blockInterrupts();
    Progress progress(std::count(request.begin(), request.end(), ',') / 2);
    return Session(options, &progress).trigger(request, progress, std::move(result));
}

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
    return trigger(options, request, std::move(result));
}

/** The ranges that the user gave, as the service wants them. */
std::string readRequest(const Options& options) {
    std::string request = options.arguments[0];
    if (request == "-") {
        request.assign(std::istreambuf_iterator<char>(std::cin), {});
    }
    if (options.raw) return request;
    request.erase(std::remove_if(request.begin(), request.end(),
                                 [](unsigned char c) { return isspace(c); }),
                  request.end());
    if (!request.empty() && request.back() != ',') request += ',';
    return request;
}

void expectArguments(const Options& options, size_t least, size_t most) {
    const size_t count = options.arguments.size();
    if (count < least) throw UsageError(options.command + ": something is missing after it");
    if (count > most) throw UsageError(options.command + ": too much after it");
}

ExitStatus run(const Options& options) {
    if (options.help) {
        fputs(kHelp, stdout);
        return kDone;
    }
    if (options.sim.device == "list") {
        fputs(describeSim().c_str(), stdout);
        return kDone;
    }
    if (options.command == "support") {
        expectArguments(options, 0, 0);
        return Session(options).support();
    }
    if (options.command == "stop" || options.command == "continue") {
        expectArguments(options, 0, 0);
        return Session(options).control();
    }
    if (options.command == "trigger") {
        expectArguments(options, 1, 1);
        return trigger(options, readRequest(options), Json::Value());
    }
    if (options.command == "defrag") {
        expectArguments(options, 1, SIZE_MAX);
        return defrag(options);
    }
    throw UsageError(options.command.empty() ? "no command"
                                             : "no command \"" + options.command + "\"");
}

}  // namespace

}  // namespace fboctl

int main(int argc, char** argv) {
    using namespace fboctl;
    try {
        const Options options = parseOptions(argc, argv);
        return run(options);
    } catch (const std::invalid_argument& error) {
        if (*error.what() != '\0') fprintf(stderr, "fboctl: %s\n", error.what());
        fprintf(stderr, "fboctl: see fboctl --help\n");
        return kWrongUsage;
    } catch (const std::exception& error) {
        fprintf(stderr, "fboctl: %s\n", error.what());
        return kNoAnswer;
    }
}
