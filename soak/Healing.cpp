#include "soak/Healing.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <map>
#include <sstream>

#include "fbo/Globals.h"
#include "sim/Profile.h"
#include "sim/Uevent.h"
#include "soak/Violation.h"

namespace soak {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

/** Ranges in a zone that is defragmented: its level is then the number of its seams, 0 to 10. */
constexpr int kZoneRanges = 11;
/** Looks at a working device in a zone: two analyses and an optimisation of one look each. */
constexpr int kZoneRetries = 3;
/** Where nothing has been before. */
constexpr int64_t kFreshBlocks = 1000000000;

/** Cycles that the health report tells, and up to which FBO is supported. */
constexpr int32_t kCycles = 120;
constexpr int32_t kWearLimit = 2399;

constexpr int kIdle = 0;
constexpr int kBackupComplete = 2;
constexpr int kDroppedByHost = 4;

/** What a level counts for on flash of `maker`. */
int numberFor(sim::Maker maker, int level) {
    static const std::map<sim::Maker, std::array<int, 11>> kNumbers = {
            {sim::Maker::kMicron, {0, 1, 2, 4, 6, 9, 12, 15, 20, 26, 38}},
            {sim::Maker::kWdc, {0, 1, 3, 11, 11, 27, 30, 64, 106, 221, 223}},
            {sim::Maker::kKioxia, {0, 0, 9, 14, 29, 62, 105, 183, 429, 486, 512}},
            {sim::Maker::kSkHynix, {0, 2, 27, 60, 92, 124, 165, 165, 282, 282, 440}},
            {sim::Maker::kSamsung, {0, 19, 50, 71, 106, 143, 192, 192, 486, 486, 486}},
    };
    return kNumbers.at(maker).at(static_cast<size_t>(level));
}

/** Of seams that were optimised a tenth is left; rounded. */
int levelAfter(int seams) {
    return seams >= 5 ? 1 : 0;
}

/** A zone of fresh ranges, the first `seams` of which do not go on where the one before ended. */
std::string zone(int index, int seams) {
    constexpr int kBlocks = 8;
    std::string text;
    int64_t start = kFreshBlocks + int64_t{index} * 100000;
    for (int i = 0; i < kZoneRanges; ++i) {
        text += std::to_string(start) + "," + std::to_string(kBlocks) + ",";
        start += i < seams ? 3 * kBlocks : kBlocks;
    }
    return text;
}

bool isSlow(sim::Maker maker) {
    return maker == sim::Maker::kMicron || maker == sim::Maker::kKioxia;
}

const sim::Profile& profileOf(const Schedule& schedule) {
    return sim::findProfile(schedule.device.substr(0, schedule.device.find(',')));
}

bool contains(const std::vector<std::string>& trace, const std::string& line) {
    return std::find(trace.begin(), trace.end(), line) != trace.end();
}

/** The nodes that tell what the device is at. */
std::vector<std::string> stateNodes(bool is31) {
    if (is31) return {"fbs_flc_ops", "fbs_defrag_ops"};
    return {"fbo_prog_state"};
}

/** Each list has to find an idle device. */
void requireIdleBeforeLists(const std::vector<std::string>& trace, bool is31) {
    const std::vector<std::string> nodes = stateNodes(is31);
    std::map<std::string, std::string> states;
    for (const std::string& line : trace) {
        for (const std::string& node : nodes) {
            const std::string read = "read " + node + " ";
            if (line.compare(0, read.size(), read) == 0) states[node] = line.substr(read.size());
        }
        if (line.compare(0, 23, "write fbo_send_lr_list ") != 0) continue;
        for (const std::string& node : nodes) {
            require(states[node] == "\"0\\n\"",
                    "a list is sent while " + node + " says " +
                            (states[node].empty() ? "nothing" : states[node]));
        }
    }
}

/** A counter reaches its node once, if there is something to tell. */
void requireCounter(const std::vector<std::string>& trace, const std::string& node, int count) {
    const std::string store = "write " + node + " ";
    std::vector<std::string> stores;
    for (const std::string& line : trace) {
        if (line.compare(0, store.size(), store) == 0) stores.push_back(line.substr(store.size()));
    }
    std::vector<std::string> expected;
    if (count > 0) expected.push_back("\"" + std::to_string(count) + "\\n\"");
    require(stores == expected, node + " is not told " + std::to_string(count) + " but " +
                                        (stores.empty() ? "nothing" : stores[0]));
}

}  // namespace

Healing::Healing(sim::Simulator& phone, const Schedule& schedule, Record& record, Service& service)
    : phone_(phone), schedule_(schedule), record_(record), service_(service), fbo_(service.fbo()) {}

void Healing::check() {
    phone_.set("ranges", std::to_string(kZoneRanges));
    takeTrace();
    checkTrigger();
    checkQueries();
    checkErase();
    checkSnapshot();
    service_.checkDescriptors("after the checks");
}

std::vector<std::string> Healing::takeTrace() {
    std::istringstream text(phone_.trace());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    const size_t taken = lines_taken_;
    lines_taken_ = lines.size();
    lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(taken));
    return lines;
}

int32_t Healing::expectedCycles() const {
    const bool keeps = record_.wear_is_wrong && !record_.fresh && record_.wear != kWearUnread;
    return keeps ? record_.wear : kCycles;
}

void Healing::checkTrigger() {
    const sim::Maker maker = profileOf(schedule_).maker;
    const int zones = static_cast<int>(schedule_.seams.size());
    std::string request;
    int before = 0;
    int after = 0;
    for (int i = 0; i < zones; ++i) {
        const int seams = schedule_.seams[static_cast<size_t>(i)];
        request += zone(i, seams);
        before += 256 * numberFor(maker, seams);
        after += 256 * numberFor(maker, levelAfter(seams));
    }
    // What a run that was stopped has counted goes on into this one.
    const int failures = cmd_fail_count;
    const int retries = cmd_retry_count + zones * kZoneRetries;

    std::string answer;
    fbo_.FBO_trigger(request, [&answer](const hidl_string& result) { answer = result; });
    const std::string expected = "Fbo:" + std::to_string(before) + ":" + std::to_string(after);
    require(answer == expected, "a trigger answers " + answer + " instead of " + expected);
    require(cmd_fail_count == 0 && cmd_retry_count == 0, "counters are not reset");
    const std::vector<std::string> trace = takeTrace();
    requireIdleBeforeLists(trace, schedule_.is31());
    requireCounter(trace, "fbo_err_cnt", failures);
    requireCounter(trace, "fbo_retry_cnt", retries);
}

void Healing::checkQueries() {
    const bool supported = expectedCycles() <= kWearLimit;
    require(fbo_.FBO_isSupport() == supported, "FBO_isSupport() is wrong");
    require(fbo_.FBO_VersionCtrl("V:1.0,1.0:ON") == supported, "FBO_VersionCtrl() is wrong");
    require(fbo_.FBO_GCADisCard(), "FBO_GCADisCard() fails");
    require(contains(takeTrace(), "write gc_urgent \"1\\n\""), "no garbage is collected");
}

void Healing::checkErase() {
    // The phone called so is one of those that must not.
    const bool supported = profileOf(schedule_).phone != "tarno";
    require(fbo_.EUA_isSupport() == supported, "EUA_isSupport() is wrong");
    require(fbo_.EUA_SupportSize() == (supported ? 65536 : 0), "EUA_SupportSize() is wrong");
    std::string report;
    fbo_.EUA_GetFreeSpaceAPECycle([&report](const hidl_string& text) { report = text; });
    const std::string expected = std::to_string(expectedCycles()) + (supported ? ":1" : ":0");
    require(report == expected, "the wear report is " + report + " instead of " + expected);
    require(fbo_.EUA_SendEraseCmd("2000000000,8:2000000100,16"), "EUA_SendEraseCmd() fails");
    const std::string unmapped = "," + phone_.unmapped() + ",";
    require(unmapped.find(",2000000000,8,2000000100,16,") != std::string::npos,
            "what was to be erased is not unmapped");
}

void Healing::checkSnapshot() {
    require(fbo_.SnapShot_startDrop(), "SnapShot_startDrop() fails");
    require(fbo_.SnapShot_getStatus() != kBackupComplete, "the snapshot is not dropped");
    require(fbo_.SnapShot_startBackup(), "SnapShot_startBackup() fails");
    require(fbo_.SnapShot_getStatus() == kBackupComplete, "there is no snapshot");
    const std::vector<std::string> trace = takeTrace();
    require(!isSlow(profileOf(schedule_).maker) ||
                    contains(trace, "read dropfreesize \"4194304\\n\"") ||
                    contains(trace, "write dropfreesize \"4194304\\n\""),
            "the device is not told how many blocks to keep free");
    if (schedule_.drops_by_event) {
        dropByEvent();
    } else {
        require(fbo_.SnapShot_startDrop(), "the second SnapShot_startDrop() fails");
    }
    requireDropped();
}

void Healing::dropByEvent() {
    using namespace std::string_literals;
    // Later than that the worker passes no event by.
    sleep(4);
    ++record_.drops_sent;
    sim::sendKernelUevent("change@/devices/ufs\0UFS_SNAPSHOT_DROP_EVENT\0"s);
    service_.awaitWorker();
}

void Healing::requireDropped() {
    const int expected = isSlow(profileOf(schedule_).maker) ? kIdle : kDroppedByHost;
    const int32_t status = fbo_.SnapShot_getStatus();
    require(status == expected, "the status after a drop is " + std::to_string(status));
}

}  // namespace soak
