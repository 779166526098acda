#include "fuzz/Phone.h"

#include <cutils/uevent.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <sstream>
#include <string_view>

#include "fbo/Globals.h"
#include "fbo/snapshot/Snapshot.h"
#include "fbo/utils/Utils.h"
#include "fuzz/Target.h"
#include "host/LogSink.h"
#include "sim/Clock.h"

namespace fuzz {

namespace impl = vendor::nivora::hardware::fbo::implementation;

namespace {

Phone* g_phone = nullptr;

/** The text that the trace has between double quotes. */
std::string unquote(const std::string& quoted) {
    std::string text;
    for (size_t i = 1; i < quoted.size() && quoted[i] != '"'; ++i) {
        const bool is_escaped = quoted[i] == '\\';
        if (is_escaped) ++i;
        if (is_escaped && quoted[i] == 'n') {
            text += '\n';
        } else if (is_escaped && quoted[i] == 'x') {
            text += static_cast<char>(std::stoi(quoted.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            text += quoted[i];
        }
    }
    return text;
}

}  // namespace

Phone& Phone::get() {
    return *g_phone;
}

Phone::Phone()
    : directory_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)),
      device_(std::string(kDevice) + ",keep_names=1") {
    // What a command line names is still found there, though the root is another one.
    require(fchdir(directory_) == 0, "the working directory is still there");
    sim::startClock([](unsigned) {});
    host::setLogSink([this](int, const char*, const char* text) { log_.emplace_back(text); });
    service_ = serve<Fbo>();
    require(impl::getFeatureDevicePath("").has_value(), "the phone has a host controller");
}

void Phone::restart() {
    static const auto kStatusWords = impl::snapshotStatusMap;
    impl::hal_status_flag = 0;
    impl::is_stop = false;
    impl::cmd_retry_count = 0;
    impl::cmd_fail_count = 0;
    impl::snapshotStatusMap = kStatusWords;
    service_->pe_cycle = impl::kWearUnread;
    service_->level_to_num.clear();
    service_->last_drop_time = 0;
    sim::onSleep(nullptr);
    device_.clearTrace();
    log_.clear();
}

std::vector<std::string> Phone::stores(const std::string& node) const {
    const std::string start = "write " + node + " ";
    std::istringstream trace(device_.trace());
    std::vector<std::string> texts;
    for (std::string line; std::getline(trace, line);) {
        if (line.compare(0, start.size(), start) == 0) {
            texts.push_back(unquote(line.substr(start.size())));
        }
    }
    return texts;
}

std::vector<std::string> Phone::logOf(const std::string& function) const {
    std::vector<std::string> lines;
    for (const std::string& line : log_) {
        if (line.compare(0, function.size() + 1, function + ":") != 0) continue;
        lines.push_back(line.substr(line.find(": ") + 2));
    }
    return lines;
}

Escape Phone::kindOf(const std::logic_error& error) {
    // Only the conversion to a number says its name.
    const bool converts = std::string_view(error.what()).substr(0, 4) == "stoi";
    const bool is_range = dynamic_cast<const std::out_of_range*>(&error) != nullptr;
    if (converts && (is_range || dynamic_cast<const std::invalid_argument*>(&error) != nullptr)) {
        return kNoNumber;
    }
    return is_range ? kNoText : kOther;
}

int Phone::lowestDescriptor() {
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    // The fuzzer watches its memory on a thread that sleeps in between: by the virtual clock, which
    // must not go on by that.
    static char unwatched[] = "-rss_limit_mb=0";
    static std::vector<char*> arguments(*argv, *argv + *argc);
    arguments.insert(arguments.end(), {unwatched, nullptr});
    ++*argc;
    *argv = arguments.data();
    try {
        fuzz::g_phone = new fuzz::Phone;
    } catch (const std::exception& error) {
        fprintf(stderr, "No phone: %s\n", error.what());
        exit(EXIT_FAILURE);
    }
    return 0;
}

// Calls that the library would make to the system, and that have no part in this.

/** The service's thread gets no socket, and ends. */
extern "C" int uevent_open_socket(int, bool) {
    return -1;
}

/** The file systems of the machine would take their time. */
extern "C" void sync() noexcept {}
