#include "Phone.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <regex>
#include <thread>

#include <android-base/strings.h>
#include <android/log.h>

#include "fbo/Globals.h"
#include "host/LogSink.h"
#include "sim/Clock.h"
#include "sim/Uevent.h"

namespace {

using android::base::ConsumePrefix;
using android::base::Split;

const std::map<std::string, std::string> kShortNames = {{"fbo_send_lr_list", "list"},
                                                        {"fbo_operation_control", "op"},
                                                        {"fbs_flc_enable", "flc"},
                                                        {"fbs_defrag_enable", "defrag"}};

std::string effectOf(const sim::Event& store) {
    const auto name = kShortNames.find(store.node);
    std::string effect = (name == kShortNames.end() ? store.node : name->second) + "=" + store.text;
    if (store.offset >= 0) {
        effect += "@" + std::to_string(store.offset);
    } else if (effect.back() == '\n') {
        effect.pop_back();
    } else {
        effect += "-";
    }
    return effect + (store.error.empty() ? "" : "!");
}

/** Joins `words` with blanks; of pairs and single ones that repeat themselves one stays. */
std::string join(const std::vector<std::string>& words) {
    std::string text;
    for (size_t i = 0, length; i < words.size(); i += length) {
        size_t times = 1;
        for (size_t size = 2; size > 0; --size) {
            size_t end = i + size;
            while (end < words.size() && words[end] == words[end - size]) ++end;
            times = (end - i) / size;
            length = times * size;
            if (times == 1) continue;
            text += " (" + words[i] + (size == 2 ? " " + words[i + 1] : "") + ")*" +
                    std::to_string(times);
            break;
        }
        if (times == 1) text += " " + words[i];
    }
    return text.substr(std::min<size_t>(1, text.size()));
}

std::string line(const sim::Event& event) {
    return std::string(1, event.priority) + " " + event.function + " " + event.text;
}

}  // namespace

void PrintTo(const Row& row, std::ostream* out) {
    *out << row.settings << ": " << row.call;
}

TEST_P(FreshPhone, Answers) {
    Row row = GetParam();
    start(row.settings);
    row.settings.clear();
    expect({row});
}

std::string effectsOf(const sim::Trace& trace) {
    std::vector<std::string> effects;
    unsigned slept = 0;
    for (const sim::Event& event : trace) {
        if (event.kind == sim::Event::kWrite) {
            effects.push_back(effectOf(event));
            slept = 0;
        } else if (event.kind == sim::Event::kSleep) {
            if (slept > 0) effects.pop_back();
            slept += event.seconds;
            effects.push_back("+" + std::to_string(slept));
        }
    }
    return join(effects);
}

std::string logOf(const sim::Trace& trace) {
    std::string log;
    for (const sim::Event& event : trace) {
        if (event.kind == sim::Event::kLog) log += line(event) + "\n";
    }
    return log;
}

std::string transcriptOf(const sim::Trace& trace) {
    static const std::regex kArea("^\\[\\w+-HAL\\] ?");
    static const std::regex kDirectory("/sys/bus/\\S*/ufs\\w+/");
    std::string text;
    for (const sim::Event& event : trace) {
        if (event.kind == sim::Event::kLog) {
            const std::string line = std::regex_replace(event.text, kArea, "");
            text += std::string("\n") + event.priority + " " + event.function + " " +
                    std::regex_replace(line, kDirectory, "");
        } else if (event.kind != sim::Event::kRead) {
            text += " | " + effectsOf({event});
        } else if (event.node != "hr" && event.node != "inquiry") {
            text += " | " + event.node + ": " + event.text.substr(0, event.text.find('\n'));
        }
    }
    return text;
}

void Phone::start(const std::string& device) {
    phone_ = std::make_unique<sim::Simulator>(device);
    set("record", "1");
    host::setLogSink([this](int priority, const char* tag, const char* text) {
        static const std::regex kStart("(\\w+):[1-9][0-9]*: ");
        std::cmatch start;
        ASSERT_STREQ(tag, "mem_fbo");
        const auto only_there = std::regex_constants::match_continuous;
        ASSERT_TRUE(std::regex_search(text, start, kStart, only_there)) << text;
        const std::string said = start.suffix();
        phone_->log("??VDIWE"[priority], start[1], said);
        std::function<void()> action;
        {
            const std::lock_guard<std::mutex> lock(mutex_);
            if (said.find(awaited_) != std::string::npos) std::swap(action, action_);
        }
        if (action) action();
    });
    descriptors_ = openDescriptors().size();
    service = serve<Fbo>();
}

void Phone::waitForWorker() {
    ++workers_;
    sim::awaitListeners(workers_);
    phone_->clearTrace();
}

void Phone::TearDown() {
    if (!phone_) return;
    EXPECT_EQ(openDescriptors().size(), descriptors_ + 2 * workers_) << "descriptors left open";
    host::setLogSink(nullptr);
}

std::vector<int> Phone::openDescriptors() {
    std::vector<int> open;
    for (int fd = 0; fd < 256; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0) open.push_back(fd);
    }
    return open;
}

void Phone::set(const std::string& settings) {
    for (const std::string& setting : Split(settings, ",")) {
        const size_t equals = setting.find('=');
        if (equals < setting.size()) set(setting.substr(0, equals), setting.substr(equals + 1));
    }
}

sim::Trace Phone::events() {
    sim::Trace trace = phone_->events();
    phone_->clearTrace();
    return trace;
}

std::string Phone::call(const std::string& text) {
    return callByName(*asked_, text);
}

void Phone::expect(const std::vector<Row>& rows) {
    for (Row row : rows) {
        const std::string calls = row.call;
        for (const std::string& settings : Split(row.settings, ";")) {
            for (const std::string& call : Split(calls, ";")) {
                row.settings = settings;
                row.call = call;
                check(row);
            }
        }
    }
}

void Phone::check(const Row& row) {
    SCOPED_TRACE(row.settings + " " + row.call);
    set(row.settings);
    events();
    cmd_retry_count = cmd_fail_count = 0;
    if (!row.moment.empty()) {
        onLog(row.moment, [this, change = row.change] {
            if (change == "stop") hal_status_flag = -1;
            set(change);
        });
    }
    std::string answer = call(row.call);
    if (cmd_retry_count != 0 || cmd_fail_count != 0) {
        answer += " r" + std::to_string(cmd_retry_count) + " f" + std::to_string(cmd_fail_count);
    }
    EXPECT_EQ(answer, row.answer);
    const sim::Trace trace = events();
    if (row.effects != kAny) {
        EXPECT_EQ(effectsOf(trace), row.effects);
    }
    const std::string log = logOf(trace);
    for (const std::string& text : Split(row.log, ";")) {
        std::string_view part = text;
        const bool forbidden = ConsumePrefix(&part, "!");
        const bool found = log.find(part) != std::string::npos;
        EXPECT_NE(found, forbidden) << text << " in\n" << log;
    }
    for (const std::string& setting : Split(row.settings, ",")) {
        const std::string key = setting.substr(0, setting.find('='));
        std::string_view node = key;
        if (ConsumePrefix(&node, "fault.")) set(key, "none");
        if (ConsumePrefix(&node, "node.") || ConsumePrefix(&node, "store."))
            set("unscript", std::string(node));
    }
}

void Phone::onLog(const std::string& text, std::function<void()> action) {
    const std::lock_guard<std::mutex> lock(mutex_);
    awaited_ = text;
    action_ = std::move(action);
}

void Phone::onSleep(int sleep, std::function<void()> action) {
    sim::onSleep([sleep, action = std::move(action), count = 0]() mutable {
        if (++count == sleep) action();
    });
}

void Phone::await(const std::string& text, int times) {
    const auto patience = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
        const sim::Trace trace = phone_->events();
        const auto count = std::count_if(trace.begin(), trace.end(), [&](const auto& event) {
            return event.text.find(text) != std::string::npos;
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
