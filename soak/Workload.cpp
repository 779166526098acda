#include "soak/Workload.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <iterator>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <stdexcept>

#include "fbo/utils/Utils.h"
#include "sim/Clock.h"
#include "sim/Uevent.h"
#include "soak/Violation.h"

namespace soak {

namespace {

using vendor::nivora::hardware::fbo::implementation::getFeatureDevicePath;
using vendor::nivora::hardware::fbo::implementation::hidl_string;

/**
 * Sleeps and log lines after which the device is as it should be again, come what may: a
 * defragmentation that always fails is started over without limit.
 */
constexpr int kSleepLimit = 300;
constexpr int kLineLimit = 5000;

/** Longer than any snapshot or clear that ends takes to end. */
constexpr unsigned kRestSeconds = 4000;

/** While it lives, what its process does is the simulation's doing. */
class Simulating {
  public:
    explicit Simulating(Record& record) : record_(record) { record_.simulating = true; }
    ~Simulating() { record_.simulating = false; }
    Simulating(const Simulating&) = delete;
    Simulating& operator=(const Simulating&) = delete;

  private:
    Record& record_;
};

bool startsWith(const std::string& text, const std::string& start) {
    return text.compare(0, start.size(), start) == 0;
}

bool isSetting(const Event& event) {
    return !event.key.empty();
}

bool hasLine(const std::string& text, const std::string& line) {
    return ("\n" + text).find("\n" + line + "\n") != std::string::npos;
}

/** Whether the record was read in part since the partition got another size. */
bool hasShortRead(const std::string& trace) {
    const std::string kRead = "read gsort 107 at 9437184: ";
    bool resized = false;
    std::istringstream text(trace);
    for (std::string line; std::getline(text, line);) {
        resized |= startsWith(line, "gsort_size ");
        if (!resized || !startsWith(line, kRead)) continue;
        const std::string size = line.substr(kRead.size());
        if (std::isdigit(size[0]) != 0 && size != "107") return true;
    }
    return false;
}

void applySetting(sim::Simulator& phone, const std::string& key, const std::string& value) {
    if (key == "gsort_size") phone.note("gsort_size " + value);
    phone.set(key, value);
}

/** Whether a snapshot may be on its way for ever after `event`. */
bool leavesSnapshotPending(const Event& event) {
    static const std::string kKeys[] = {"backup",     "backup_idle", "drop",
                                        "backup_end", "drop_end",    "snapshot"};
    return std::find(std::begin(kKeys), std::end(kKeys), event.key) != std::end(kKeys) &&
           (event.value == "stuck" || event.value == "1");
}

void takeBack(sim::Simulator& phone, const Event& event) {
    if (startsWith(event.key, "node.")) {
        phone.set("unscript", event.key.substr(5));
    } else if (event.key != "snapshot") {
        applySetting(phone, event.key, usualValue(event.key));
    }
    // The device gives such a snapshot up.
    if (leavesSnapshotPending(event)) phone.set("snapshot", "5");
}

void takeBackAll(sim::Simulator& phone, const Schedule& schedule, const Record& record) {
    for (size_t i = 0; i < schedule.events.size(); ++i) {
        if (record.fired[i] && isSetting(schedule.events[i])) takeBack(phone, schedule.events[i]);
    }
}

/**
 * Whether something may be on its way that the service has no means to end: a snapshot, or a clear
 * that takes longer than it waits.
 */
bool needsRest(const Schedule& schedule) {
    return std::any_of(schedule.tasks.begin(), schedule.tasks.end(),
                       [](const Task& task) { return task.call == Task::Call::kSnapshot; }) ||
           std::any_of(schedule.events.begin(), schedule.events.end(),
                       [](const Event& event) { return event.key == "clear"; });
}

void noteStruck(const sim::Simulator& phone, const Schedule& schedule, Record& record) {
    const std::string struck = phone.struck();
    for (size_t i = 0; i < schedule.events.size(); ++i) {
        const Event& event = schedule.events[i];
        if (!record.fired[i] || record.struck[i]) continue;
        if (event.kind == Kind::kShortRead) {
            record.struck[i] = hasShortRead(phone.trace());
        } else if (isSetting(event)) {
            record.struck[i] = hasLine(struck, event.key);
        } else {
            record.struck[i] =
                    event.kind != Kind::kDropEvent || record.drops_done == record.drops_sent;
        }
        if (record.struck[i] && event.key == "node.hr") record.wear_is_wrong = true;
    }
}

/** Whether a number could not be read, or no directory found: errors may escape then. */
bool explainsEscape(const Event& event) {
    static const std::set<std::string> kNumbers = {
            "fbo_max_lrc",           "is_ufs31",         "fbo_prog_state",
            "fbo2_linear_map_state", "fbs_flc_ops",      "fbs_defrag_ops",
            "eua_support",           "eua_support_size", "dropfreesize",
    };
    switch (event.kind) {
        case Kind::kGarbage:
        case Kind::kReadError:
        case Kind::kMissing:
            return kNumbers.count(event.key.substr(event.key.find('.') + 1)) > 0;
        default:
            return event.kind == Kind::kNoController;
    }
}

void checkEscapes(const Schedule& schedule, const Record& record) {
    bool explained = record.escapes == 0;
    for (size_t i = 0; i < schedule.events.size(); ++i) {
        explained |= record.struck[i] && explainsEscape(schedule.events[i]);
    }
    require(explained, "an error escaped, and no fault explains it");
}

}  // namespace

void takeBack(sim::Simulator& phone, const Schedule& schedule, Record& record) {
    noteStruck(phone, schedule, record);
    takeBackAll(phone, schedule, record);
    if (needsRest(schedule)) sleep(kRestSeconds);
    checkEscapes(schedule, record);
}

Workload::Workload(sim::Simulator& phone, const Schedule& schedule, Record& record, bool print)
    : phone_(phone),
      schedule_(schedule),
      record_(record),
      caller_(std::this_thread::get_id()),
      service_(record, print, [this] { lineLogged(); }) {}

void Workload::run() {
    sim::onSleep([this] { slept(); });
    // The directory is looked for while it is there, unless that is what is to go wrong.
    if (!schedule_.has(Kind::kNoController)) getFeatureDevicePath("");
    record_.phase = Record::Phase::kWorkload;
    reach(Moment::Mark::kStart, 0);
    std::thread company;
    if (schedule_.company > 0) company = std::thread([this] { keepCompany(); });
    for (const Task& task : schedule_.tasks) perform(task);
    if (company.joinable()) company.join();
    record_.phase = Record::Phase::kHealing;
    // Not before the worker is at rest, too, which sleeps as well.
    service_.awaitWorker();
    sim::onSleep(nullptr);
    record_.wear = service_.fbo().pe_cycle;
    takeBack(phone_, schedule_, record_);
    service_.checkDescriptors("after the faults");
}

void Workload::perform(const Task& task) {
    try {
        call(task);
    } catch (const std::invalid_argument&) {
        ++record_.escapes;
    } catch (const std::out_of_range&) {
        ++record_.escapes;
    } catch (const std::bad_optional_access&) {
        require(schedule_.has(Kind::kNoController), "the directory is lost");
        ++record_.escapes;
    }
}

void Workload::call(const Task& task) {
    switch (task.call) {
        case Task::Call::kTrigger:
            trigger(task.request);
            break;
        case Task::Call::kErase:
            service_.fbo().EUA_isSupport();
            service_.fbo().EUA_SupportSize();
            service_.fbo().EUA_GetFreeSpaceAPECycle([](const hidl_string&) {});
            service_.fbo().EUA_SendEraseCmd(task.request);
            break;
        case Task::Call::kSnapshot:
            backUp();
            break;
        case Task::Call::kQueries:
            query();
            break;
    }
}

void Workload::trigger(const std::string& request) {
    std::string answer;
    int answers = 0;
    service_.fbo().FBO_trigger(request, [&](const hidl_string& result) {
        answer = result;
        ++answers;
    });
    static const std::regex kAnswer("Fbo:-?[0-9]+:-?[0-9]+");
    require(answers == 1 && std::regex_match(answer, kAnswer),
            "a trigger answers " + std::to_string(answers) + " times, \"" + answer + "\"");
}

void Workload::backUp() {
    service_.fbo().SnapShot_startDrop();
    service_.fbo().SnapShot_startBackup();
    service_.fbo().SnapShot_getStatus();
    service_.fbo().SnapShot_startDrop();
}

void Workload::query() {
    service_.fbo().FBO_isSupport();
    service_.fbo().FBO_VersionCtrl("V:1.0,>0.9:ON");
    service_.fbo().FBO_GCADisCard();
}

/** On a thread of its own: stops, continues and asks, as other clients do. */
void Workload::keepCompany() {
    for (int i = 0; i < schedule_.company; ++i) {
        tell(i % 2 == 0 ? "stop" : "continue");
        try {
            service_.fbo().EUA_isSupport();
            service_.fbo().EUA_SupportSize();
        } catch (const std::invalid_argument&) {
            ++record_.escapes;
        } catch (const std::out_of_range&) {
            ++record_.escapes;
        }
        sched_yield();
    }
}

void Workload::slept() {
    if (std::this_thread::get_id() == caller_) reach(Moment::Mark::kSleep, ++sleeps_);
}

void Workload::lineLogged() {
    if (record_.phase != Record::Phase::kWorkload) return;
    reach(Moment::Mark::kLogLine, ++lines_);
}

void Workload::reach(Moment::Mark mark, int number) {
    const Simulating simulating(record_);
    for (size_t i = 0; i < schedule_.events.size(); ++i) {
        const Moment& moment = schedule_.events[i].moment;
        if (moment.mark == mark && moment.number == number) happen(i);
    }
    if ((mark == Moment::Mark::kSleep && number == kSleepLimit) ||
        (mark == Moment::Mark::kLogLine && number == kLineLimit)) {
        noteStruck(phone_, schedule_, record_);
        takeBackAll(phone_, schedule_, record_);
    }
}

void Workload::happen(size_t event) {
    const Event& what = schedule_.events[event];
    record_.fired[event] = true;
    if (what.kind == Kind::kStop) {
        // From another thread, as a client's stop comes, but at a moment that is known.
        std::thread([&] { tell(what.value); }).join();
    } else if (what.kind == Kind::kDropEvent) {
        sendDrop(what.value == "awaited");
    } else {
        applySetting(phone_, what.key, what.value);
    }
}

void Workload::tell(const std::string& command) {
    service_.fbo().FBO_stateCtl(command, [](const hidl_string&) {});
}

void Workload::sendDrop(bool is_awaited) {
    using namespace std::string_literals;
    ++record_.drops_sent;
    sim::sendKernelUevent("change@/devices/ufs\0UFS_SNAPSHOT_DROP_EVENT\0"s);
    if (is_awaited) service_.awaitWorker();
}

}  // namespace soak
