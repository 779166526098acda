#include "Phone.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include <android/log.h>

#include "host/LogSink.h"
#include "sim/Clock.h"
#include "sim/Uevent.h"

namespace {

/** Everything that the service may ever write. */
const std::set<std::string> kWritten = {
        "debug",
        "fbo_exe_level",
        "fbo_wholefile_enable",
        "fbo_send_lr_list",
        "fbs_flc_enable",
        "fbs_defrag_enable",
        "fbo_operation_control",
        "fbo_err_cnt",
        "fbo_retry_cnt",
        "gc_urgent",
        "ctrl",
        "dropfreesize",
        "gsort",
        "eua_file_lba_unmap",
        "drop_caches",
};

}  // namespace

std::vector<std::string> lines(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::vector<std::string> tail(std::vector<std::string> events, size_t count) {
    if (events.size() > count) events.erase(events.begin(), events.end() - count);
    return events;
}

void Phone::start(const std::string& device) {
    phone_ = std::make_unique<sim::Simulator>(device);
    set("record", "1");
    host::setLogSink([this](int priority, const char* tag, const char* text) {
        static const std::regex kForm("(\\w+):[1-9][0-9]*: ([^]*)");
        std::cmatch parts;
        ASSERT_STREQ(tag, "mem_fbo");
        ASSERT_TRUE(std::regex_match(text, parts, kForm)) << text;
        std::string line = parts[2];
        std::replace(line.begin(), line.end(), '\n', '|');
        phone_->note(std::string("log ") + "??VDIWE"[priority] + " " + parts[1].str() + " " + line);
        std::function<void()> action;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (line.find(awaited_) != std::string::npos) action = action_;
        }
        if (action) action();
    });
    descriptors_ = openDescriptors();
    service = serve<Fbo>();
}

void Phone::waitForWorker() {
    ++workers_;
    sim::awaitListeners(workers_);
    phone_->clearTrace();
}

void Phone::TearDown() {
    if (!phone_) return;
    EXPECT_EQ(openDescriptors().size(), descriptors_.size() + 2 * workers_)
            << "descriptors left open";
    for (const std::string& write : events("write ")) {
        EXPECT_EQ(kWritten.count(write.substr(0, write.find(' '))), 1u) << write;
    }
    host::setLogSink(nullptr);
}

std::vector<int> Phone::openDescriptors() const {
    std::vector<int> open;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) open.push_back(fd);
    }
    return open;
}

std::vector<int> Phone::serviceDescriptors() const {
    const std::vector<int> open = openDescriptors();
    std::vector<int> added;
    std::set_difference(open.begin(), open.end(), descriptors_.begin(), descriptors_.end(),
                        std::back_inserter(added));
    return added;
}

std::vector<std::string> Phone::events() {
    const std::string trace = phone_->trace();
    phone_->clearTrace();
    return lines(trace);
}

std::vector<std::string> Phone::events(const std::string& what) {
    std::vector<std::string> chosen;
    for (const std::string& event : events()) {
        if (event.compare(0, what.size(), what) == 0) chosen.push_back(event.substr(what.size()));
    }
    return chosen;
}

std::vector<std::string> Phone::story(const std::string& function) {
    static const std::regex kLog("log (.) (\\w+) (\\[\\w+-HAL\\] ?)?(.*)");
    std::vector<std::string> story;
    for (const std::string& event : events()) {
        std::smatch parts;
        if (!std::regex_match(event, parts, kLog)) {
            story.push_back(event);
        } else if (parts[2] == function) {
            story.push_back(parts[1].str() + " " + parts[4].str());
        }
    }
    return story;
}

void Phone::onLog(const std::string& text, std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(mutex_);
    awaited_ = text;
    action_ = std::move(action);
}

bool Phone::logged(const std::string& line) {
    const std::vector<std::string> events = lines(phone_->trace());
    return std::find(events.begin(), events.end(), "log " + line) != events.end();
}

void Phone::await(const std::string& text, int times) {
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        const std::vector<std::string> events = lines(phone_->trace());
        const auto count = std::count_if(events.begin(), events.end(), [&](const auto& event) {
            return event.find(text) != std::string::npos;
        });
        if (count >= times) {
            // What the thread that logged has done before is seen from here on.
            const std::lock_guard<std::mutex> lock(mutex_);
            return;
        }
        ASSERT_LT(std::chrono::steady_clock::now(), patience) << text << " does not come";
        std::this_thread::yield();
    }
}

std::string Phone::trigger(const std::string& text) {
    std::string answer;
    int answers = 0;
    service->FBO_trigger(text, [&](const hidl_string& result) {
        answer = result;
        ++answers;
    });
    EXPECT_EQ(answers, 1);
    return answer;
}

std::string Phone::stateCtl(const std::string& text) {
    std::string answer;
    service->FBO_stateCtl(text, [&](const hidl_string& result) { answer = result; });
    return answer;
}

void Phone::tellAtSleep(int sleep, const std::string& text) {
    sim::onSleep([this, sleep, text, count = 0]() mutable {
        if (++count == sleep) stateCtl(text);
    });
}
