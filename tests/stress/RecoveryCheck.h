#pragma once

#include <unistd.h>

#include <map>
#include <set>

#include "Subject.h"
#include "fbo/Globals.h"

namespace stress {

namespace impl = vendor::nivora::hardware::fbo::implementation;

/**
 * Asks everything of a service on a device that is well again. Its answers and what it writes have
 * to be right.
 */
class RecoveryCheck {
  public:
    /** @param is_fresh whether the service was started anew after the faults. */
    RecoveryCheck(Subject& subject, bool is_fresh)
        : subject_(subject),
          scenario_(subject.scenario),
          bytes_(subject.scenario.rest),
          fbo_(*subject.fbo),
          is_fresh_(is_fresh),
          is31_(subject.scenario.profile->generation == sim::Generation::kUfs31) {}

    void run() {
        // A clear that takes longer than the service waits; and what has become of the snapshot.
        if (scenario_.has("clear")) sleep(400);
        subject_.phone.set("snapshot", "2");
        subject_.takeTrace();
        // A report that was wrong is kept for the life of the process.
        const bool was_wrong =
                scenario_.has("node.hr") || scenario_.has("node.vendor") || scenario_.has("wear");
        const int wear =
                was_wrong && fbo_.pe_cycle != impl::kWearUnread ? fbo_.pe_cycle : scenario_.wear;
        checkTrigger();
        checkQueries(wear);
        checkSnapshot();
        subject_.requireNoNewDescriptors();
    }

  private:
    using Lines = std::vector<std::string>;

    /** Sets a duration and returns how often the service looks until its end. */
    int setLooks(const char* key, int seconds, const char* choices) {
        const int looks = std::stoi(bytes_.word(choices));
        subject_.phone.set(key, std::to_string(looks * seconds));
        return looks;
    }

    /** Two zones on ranges that nothing has touched; the first has three seams, the other one. */
    void checkTrigger() {
        const std::string base = is_fresh_ ? "2000000" : "1000000";
        const std::string zones[] = {
                base + "00,8," + base + "10,8," + base + "20,8," + base + "30,8",
                base + "40,8," + base + "48,8," + base + "70,8"};
        const int looks =
                2 * setLooks("analysis", 6, "0 1 2 1 2 3 1 200") + setLooks("optimise", 6, "1 200");
        setLooks("mapping", 3, "1 200");
        // What a run that was stopped has counted goes on into this one.
        const int failures = impl::cmd_fail_count;
        const int retries = impl::cmd_retry_count + 2 * looks;
        std::string answer;
        fbo_.FBO_trigger(zones[0] + "," + zones[1] + ",",
                         [&answer](const hidl_string& text) { answer = text; });
        // Of a seam that was optimised a tenth counts.
        const auto figure = [this](int level) { return 256 * fbo_.level_to_num.at(level); };
        const std::string right = "Fbo:" + std::to_string(figure(10) + figure(5)) + ":" +
                                  std::to_string(figure(1) + figure(1));
        require(answer == right, "a trigger answers " + answer + " instead of " + right);
        require(impl::cmd_fail_count == 0 && impl::cmd_retry_count == 0, "the counters go on");
        Lines writes = {"debug \"1\"",         "fbo_exe_level \"0\"",        line(kList, zones[0]),
                        line(kList, zones[0]), "fbo_wholefile_enable \"1\"", line(kList, zones[1]),
                        line(kList, zones[1])};
        if (failures > 0) writes.push_back(line("fbo_err_cnt", std::to_string(failures)));
        if (retries > 0) writes.push_back(line("fbo_retry_cnt", std::to_string(retries)));
        const bool maps = scenario_.device.find("linear=1") != std::string::npos;
        if (!is31_ && maps) writes.push_back(line(kList, "0,262144"));
        checkWrites(writes);
    }

    void checkQueries(int wear) {
        // Flash that is worn out is not worth it; the phone called tarno must not erase.
        const bool has_fbo = wear < 2400;
        const bool has_eua = scenario_.profile->phone != "tarno";
        require(fbo_.FBO_isSupport() == has_fbo, "FBO_isSupport() is wrong");
        require(fbo_.FBO_VersionCtrl("V:1.0,1.0:ON") == has_fbo, "FBO_VersionCtrl() is wrong");
        require(fbo_.EUA_isSupport() == has_eua, "EUA_isSupport() is wrong");
        require(fbo_.EUA_SupportSize() == (has_eua ? 65536 : 0), "EUA_SupportSize() is wrong");
        std::string report;
        fbo_.EUA_GetFreeSpaceAPECycle([&report](const hidl_string& text) { report = text; });
        require(report == std::to_string(wear) + (has_eua ? ":1" : ":0"), "the wear is " + report);
        require(fbo_.FBO_GCADisCard() && fbo_.EUA_SendEraseCmd("1,8:2,9:"), "no request is sent");
        checkWrites({line("gc_urgent", "1"), line("eua_file_lba_unmap", "1,8"),
                     line("eua_file_lba_unmap", "2,9")});
    }

    void checkSnapshot() {
        // Such flash takes its time before and after a snapshot, and keeps blocks free.
        const std::string& vendor = scenario_.profile->vendor;
        const bool is_slow = vendor == "MICRON" || vendor == "KIOXIA";
        // Not the number that the threshold's node has from before.
        const int blocks =
                setLooks("prop.vendor.snapshot_devicefreeblock", 1, is_fresh_ ? "3" : "5");
        setLooks("backup", 1, "2 29");
        setLooks("drop", 1, "1 30");
        require(fbo_.SnapShot_startDrop(), "SnapShot_startDrop() fails");
        Lines writes = {line("ctrl", "stop")};
        for (const bool is_first : {true, false}) {
            require(fbo_.SnapShot_startBackup(), "SnapShot_startBackup() fails");
            require(fbo_.SnapShot_getStatus() == 2, "there is no snapshot");
            // Sooner after another drop the worker passes an event by.
            sleep(4);
            subject_.sendDrop();
            subject_.awaitWorker();
            require(fbo_.SnapShot_getStatus() == (is_slow ? 0 : 4), "the snapshot is not dropped");
            writes.insert(writes.end(), 3, line("drop_caches", "3"));
            writes.emplace_back("gsort 107 at 9437184: 107");
            if (is_slow && is_first) {
                writes.push_back(line("dropfreesize", std::to_string(blocks << 18)));
            }
            writes.insert(writes.end(), {line("ctrl", "start"), line("ctrl", "stop")});
        }
        checkWrites(writes);
    }

    static std::string line(const std::string& node, const std::string& text) {
        return node + " \"" + text + "\\n\"";
    }

    /**
     * Nothing was written but `right`, and what starts and clears the device's operations.
     * Each list was sent to a device that the service knew to be idle.
     */
    void checkWrites(const Lines& right) {
        static const std::set<std::string> kControls = {"fbo_operation_control", "fbs_flc_enable",
                                                        "fbs_defrag_enable"};
        std::map<std::string, std::string> states;
        Lines writes;
        for (const std::string& event : subject_.takeTrace()) {
            const Lines words = split(event, ' ');
            const bool is_state = words[1] == "fbo_prog_state" || words[1] == "fbs_flc_ops" ||
                                  words[1] == "fbs_defrag_ops";
            if (is_state) states[words[1]] = words[2];
            if (words[0] != "write" || kControls.count(words[1]) > 0) continue;
            writes.push_back(event.substr(6));
            if (words[1] != kList) continue;
            require(states.size() == (is31_ ? 2 : 1), "a list is sent before the state is known");
            for (const auto& [node, state] : states) {
                require(state == "\"0\\n\"", "a list is sent while " + node + " is " + state);
            }
        }
        const auto [is, other] =
                std::mismatch(writes.begin(), writes.end(), right.begin(), right.end());
        require(writes == right, "it writes " + (is == writes.end() ? "nothing" : *is) +
                                         " instead of " +
                                         (other == right.end() ? "nothing" : *other));
    }

    static constexpr char kList[] = "fbo_send_lr_list";

    Subject& subject_;
    const Scenario& scenario_;
    Bytes bytes_;
    Fbo& fbo_;
    const bool is_fresh_;
    const bool is31_;
};

}  // namespace stress
