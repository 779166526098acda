#pragma once

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>

#include "Subject.h"
#include "sim/Clock.h"

namespace stress {

/** Takes back what is wrong with the device. What that is doing goes on. */
inline void takeBack(sim::Simulator& phone, const Scenario& scenario) {
    for (const Event& event : scenario.events) {
        if (startsWith(event.key, "fault.")) phone.set(event.key, "none");
        if (startsWith(event.key, "node.")) phone.set("unscript", event.key.substr(5));
    }
    for (const std::string& setting : split(kUsual, ',')) {
        phone.set(split(setting, '=')[0], split(setting, '=')[1]);
    }
    phone.set("wear", std::to_string(scenario.wear));
}

/** Makes the calls of a run while its events happen, and judges the traffic of each. */
class Workload {
  public:
    explicit Workload(Subject& subject) : subject_(subject), scenario_(subject.scenario) {}

    /** Leaves the service at rest, on a device that is well again. */
    void run() {
        sim::onSleep([this] {
            if (std::this_thread::get_id() == subject_.caller) reach(Event::kSleep, ++sleeps_);
        });
        subject_.on_line = [this] { reach(Event::kLine, ++lines_); };
        reach(Event::kStart, 1);
        // A stop that is requested before a call holds for none.
        subject_.takeTrace();
        auto beside = std::async(std::launch::async, [this] {
            for (int i = 0; i < scenario_.calls_beside; ++i) {
                make({4 + i % 8, i % 3 == 0 ? "continue" : "stop"});
            }
        });
        for (const Call& call : scenario_.calls) {
            make(call);
            checkTraffic(call.text);
        }
        subject_.on_line = nullptr;
        beside.get();
        subject_.awaitWorker();
        sim::onSleep(nullptr);
        takeBack(subject_.phone, scenario_);
        subject_.requireNoNewDescriptors();
        if (subject_.has_stopped) ++subject_.tally.stops;
    }

  private:
    /** Makes a call. An error that ends it has to be one that may. */
    void make(const Call& call) {
        Fbo& fbo = *subject_.fbo;
        std::string answer;
        const auto take = [&answer](const hidl_string& text) { answer += text; };
        // The first four wait for the device.
        const std::function<void()> methods[] = {
                [&] { fbo.FBO_trigger(call.text, take); },
                [&] { fbo.SnapShot_startBackup(); },
                [&] { fbo.SnapShot_startDrop(); },
                [&] { fbo.EUA_SendEraseCmd(call.text); },
                [&] { fbo.FBO_stateCtl(call.text, take); },
                [&] { fbo.SnapShot_getStatus(); },
                [&] { fbo.EUA_isSupport(); },
                [&] { fbo.EUA_SupportSize(); },
                [&] { fbo.EUA_GetFreeSpaceAPECycle(take); },
                [&] { fbo.FBO_isSupport(); },
                [&] { fbo.FBO_VersionCtrl(call.text); },
                [&] { fbo.FBO_GCADisCard(); },
        };
        // Those that read a number end without one; one cannot take a text that is a "V" alone.
        constexpr bool kReadsNumbers[] = {true, true, false, false, false, false,
                                          true, true, true,  false, false, false};
        try {
            methods[call.method]();
        } catch (const std::logic_error& error) {
            const bool is_short = call.method == 10 && call.text == "V";
            require(is_short || (kReadsNumbers[call.method] && startsWith(error.what(), "stoi") &&
                                 !scenario_.events.empty()),
                    "an error escapes method " + std::to_string(call.method) + ": " + error.what());
            ++subject_.tally.errors;
            return;
        }
        if (call.method != 0) return;
        int before = 0;
        int after = 0;
        char more = 0;
        require(sscanf(answer.c_str(), "Fbo:%d:%d%c", &before, &after, &more) == 2 &&
                        (before >= after || subject_.has_stopped),
                "a trigger answers " + answer);
    }

    /** Whatever happens, nothing is repeated too often, and not much comes after a stop. */
    void checkTraffic(const std::string& request) {
        // The list that was about to be sent, and that of the linear mapping.
        static const std::map<std::string, int> kAfterStop = {
                {"write fbo_send_lr_list", 2}, {"read is_ufs31", 1}, {"sleep 6", 1}};
        static const std::map<std::string, int> kInRow = {
                {"sleep 1", 30}, {"sleep 3", 200}, {"sleep 6", 200}, {"sleep 30", 10}};
        std::map<std::string, int> sendings, after_stop, in_row;
        std::string node;
        int failures = 0;
        bool is_stopped = false;
        const bool is_alone = scenario_.calls_beside == 0 && !scenario_.has("uevent");
        for (const std::string& line : subject_.takeTrace()) {
            require(!startsWith(line, "write gsort ") ||
                            startsWith(line, "write gsort 107 at 9437184: "),
                    line);
            if (!is_alone) continue;
            is_stopped = (is_stopped || line == "stop") && line != "continue";
            for (const auto& [start, limit] : kAfterStop) {
                const bool counts = is_stopped && startsWith(line, start);
                require(!counts || ++after_stop[start] <= limit, "after a stop: " + line);
            }
            // In a row is what nothing comes between but looks at the same node.
            const auto limit = kInRow.find(line);
            if (limit != kInRow.end()) {
                require(++in_row[line] <= limit->second, "too often in a row: " + line);
            } else if (const std::string next = line.substr(0, line.find('"')); next != node) {
                in_row.clear();
                node = next;
            }
            // A UFS 3.1 device that fails so is asked again without limit.
            if (node == "read fbs_defrag_ops " && line.find("255") != line.npos) ++failures;
            // Two passes, one of which is tried again.
            const bool counts = node == "write fbo_send_lr_list " && request.back() == ',' &&
                                line.find("\\n\"") != line.npos;
            require(!counts || ++sendings[line] <= 3 + failures, "too often: " + line);
        }
    }

    void reach(Event::When when, int number) {
        for (const Event& event : scenario_.events) {
            if (event.when == when && event.number == number) happen(event);
        }
        // A defragmentation that always fails is started over without limit.
        if (number == (when == Event::kSleep ? 300 : 5000)) takeBack(subject_.phone, scenario_);
        // No call of a sound service comes that far, and the trace grows with each step.
        if (number < 50000) return;
        fprintf(stderr, "a call does not come to its end\n");
        _exit(EXIT_FAILURE);
    }

    void happen(const Event& event) {
        ++subject_.tally.events;
        if (event.key == "tell") {
            // From another thread, as a client's stop comes, but at a moment that is known.
            std::thread([&] {
                subject_.fbo->FBO_stateCtl(event.value, [](const hidl_string&) {});
            }).join();
            subject_.phone.note(event.value);
        } else if (event.key == "uevent") {
            subject_.sendDrop();
            if (event.value == "wait") subject_.awaitWorker();
        } else {
            subject_.phone.set(event.key, event.value);
        }
    }

    Subject& subject_;
    const Scenario& scenario_;
    int sleeps_ = 0;
    int lines_ = 0;
};

}  // namespace stress
