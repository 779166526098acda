#include "soak/Service.h"

#include <fcntl.h>
#include <sched.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include "host/LogSink.h"
#include "sim/Uevent.h"
#include "soak/Violation.h"

namespace soak {

namespace {

/** New descriptors get the lowest free number: one left open shows among the first. */
constexpr int kLookedAt = 64;

std::vector<int> openDescriptors() {
    std::vector<int> open;
    for (int fd = 0; fd < kLookedAt; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) open.push_back(fd);
    }
    return open;
}

std::string list(const std::vector<int>& numbers) {
    std::string text;
    for (const int number : numbers) text += " " + std::to_string(number);
    return text;
}

bool contains(const char* text, const char* part) {
    return strstr(text, part) != nullptr;
}

/** Whether the worker is done with a drop event when it has logged `line`. */
bool endsDrop(const char* line) {
    return contains(line, "drop snapshot success in uevent") ||
           contains(line, "drop snapshot fail in uevent") || contains(line, ", so by pass.");
}

}  // namespace

Service::Service(Record& record, bool print, std::function<void()> line_logged) : record_(record) {
    watchLog(print, std::move(line_logged));
    fbo_ = new Fbo;
    fbo_->incStrong(this);
    sim::awaitListeners(1);
    descriptors_ = openDescriptors();
}

void Service::watchLog(bool print, std::function<void()> line_logged) {
    const auto calling = std::this_thread::get_id();
    host::setLogSink([this, print, line_logged = std::move(line_logged), calling](
                             int, const char*, const char* text) {
        if (print) fprintf(stderr, "            log %s\n", text);
        if (contains(text, "hal stop")) record_.stopped = true;
        if (endsDrop(text)) ++record_.drops_done;
        if (std::this_thread::get_id() == calling) line_logged();
    });
}

void Service::awaitWorker() const {
    while (record_.drops_done < record_.drops_sent) sched_yield();
}

void Service::checkDescriptors(const char* when) const {
    const std::vector<int> now = openDescriptors();
    require(now == descriptors_, std::string("descriptors open ") + when + ":" + list(now) +
                                         "; before:" + list(descriptors_));
}

}  // namespace soak
