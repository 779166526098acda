#include "soak/Schedule.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "sim/Profile.h"
#include "soak/Random.h"

namespace soak {

namespace {

// What a task reaches for, as bits.
constexpr unsigned kTrigger40 = 1;
constexpr unsigned kTrigger31 = 2;
constexpr unsigned kTrigger = kTrigger40 | kTrigger31;
constexpr unsigned kErase = 4;
constexpr unsigned kSnapshot = 8;
constexpr unsigned kQueries = 16;

/** A file of the phone that a fault can be at, by its name. */
struct Node {
    const char* name;
    bool is_read;
    bool is_written;
    /** Who uses it. */
    unsigned users;
};

constexpr Node kNodes[] = {
        {"fbo_max_lrc", true, false, kTrigger},
        {"is_ufs31", true, false, kTrigger},
        {"fbo_get_lr_frag_level", true, false, kTrigger},
        {"fbo_send_lr_list", false, true, kTrigger},
        {"debug", false, true, kTrigger},
        {"fbo_exe_level", false, true, kTrigger},
        {"fbo_wholefile_enable", false, true, kTrigger},
        {"fbo_err_cnt", false, true, kTrigger},
        {"fbo_retry_cnt", false, true, kTrigger},
        {"fbo_operation_control", false, true, kTrigger40},
        {"fbo_prog_state", true, false, kTrigger40},
        {"fbo_prog_state", true, false, kTrigger40},
        {"fbo2_linear_map_state", true, false, kTrigger40},
        {"fbo2_linear_mapping_start", true, false, kTrigger40},
        {"fbo2_linear_mapping_end", true, false, kTrigger40},
        {"fbs_flc_enable", false, true, kTrigger31},
        {"fbs_flc_ops", true, false, kTrigger31},
        {"fbs_defrag_enable", false, true, kTrigger31},
        {"fbs_defrag_ops", true, false, kTrigger31},
        {"hr", true, false, kTrigger | kErase | kQueries},
        {"vendor", true, false, kTrigger | kErase | kSnapshot | kQueries},
        {"eua_support", true, false, kErase},
        {"eua_support_size", true, false, kErase},
        {"eua_file_lba_unmap", false, true, kErase},
        {"inquiry", true, false, kErase},
        {"ctrl", false, true, kSnapshot},
        {"ctrl", false, true, kSnapshot},
        {"status", true, false, kSnapshot},
        {"status", true, false, kSnapshot},
        {"dropfreesize", true, true, kSnapshot},
        {"gsort", true, true, kSnapshot},
        {"drop_caches", false, true, kSnapshot},
        {"fbo_support", true, false, kQueries},
        {"gc_urgent", false, true, kQueries},
        // Directories and links.
        {"userdata", false, false, kQueries},
        {"ufsfbo", false, false, kTrigger | kQueries},
        {"ufseua", false, false, kErase},
        {"ufssnapshot", false, false, kSnapshot},
};

/** Settings with which the device itself does not do what it should. */
struct Misbehaviour {
    Kind kind;
    unsigned users;
    const char* key;
    std::vector<const char*> values;
};

/** Offsets around the fields of the record on the partition, and before it. */
const std::vector<const char*> kSizes = {"0",       "4096",    "9437184", "9437185",
                                         "9437191", "9437192", "9437219", "9437222",
                                         "9437223", "9437225", "9437227", "9437290"};

const std::vector<Misbehaviour> kMisbehaviours = {
        {Kind::kStuck, kTrigger, "analysis", {"stuck", "6/stuck"}},
        {Kind::kStuck, kTrigger, "optimise", {"stuck", "6/stuck"}},
        {Kind::kStuck, kTrigger31, "accept", {"stuck", "0/stuck"}},
        {Kind::kStuck, kTrigger40, "mapping", {"stuck"}},
        {Kind::kStuck, kSnapshot, "backup", {"stuck"}},
        {Kind::kStuck, kSnapshot, "backup_idle", {"stuck"}},
        {Kind::kStuck, kSnapshot, "drop", {"stuck"}},
        {Kind::kWrongEnd, kTrigger, "analysis_end", {"9", "9/-1", "255", "0", "0/-1", "1"}},
        {Kind::kWrongEnd, kTrigger, "optimise_end", {"255", "255/-1", "9", "2", "3", "1"}},
        {Kind::kWrongEnd, kTrigger40, "mapping_end", {"255", "0", "2"}},
        {Kind::kWrongEnd, kTrigger, "report", {"28", "28/4096", "0", "11/11/4096"}},
        {Kind::kWrongEnd, kSnapshot, "backup_end", {"6", "0", "5", "1", "3"}},
        {Kind::kWrongEnd, kSnapshot, "drop_end", {"6", "1", "2", "5"}},
        {Kind::kWrongEnd, kSnapshot, "snapshot", {"6", "1", "2", "4", "0"}},
        {Kind::kSlow, kTrigger, "clear", {"31", "45", "200", "400"}},
        {Kind::kSlow, kTrigger, "analysis", {"0", "600", "1199", "1201"}},
        {Kind::kSlow, kTrigger, "optimise", {"0", "600", "1201"}},
        {Kind::kSlow, kTrigger31, "accept", {"1", "90", "299", "301"}},
        {Kind::kSlow, kTrigger40, "mapping", {"0", "599", "601"}},
        {Kind::kSlow, kSnapshot, "backup", {"0", "25", "100"}},
        {Kind::kSlow, kSnapshot, "backup_idle", {"20", "100"}},
        {Kind::kSlow, kSnapshot, "drop", {"0", "29", "60"}},
        {Kind::kShortRead, kSnapshot, "gsort_size", kSizes},
};

/** What a node may say that says nothing; or too much, or what belongs elsewhere. */
const std::vector<std::string> kGarbage = {
        "",
        "\n",
        "x",
        "1x",
        "-1",
        "0",
        "1",
        "2/3/1/x",
        "7",
        "255",
        "2147483648",
        "-2147483649",
        "99999999999999999999",
        "0x1",
        " \t1",
        "1/1/1/",
        "\xff\xfe",
        "idle",
        "%s%n",
        "frag_lvl: z, lr_count: 0, optimised: 0\n",
        std::string(5000, '7'),
        std::string(70, 'a'),
};

struct Weight {
    Kind kind;
    int weight;
};

constexpr Weight kWeights[] = {
        {Kind::kMissing, 14},     {Kind::kDenied, 12},  {Kind::kReadError, 11},
        {Kind::kWriteError, 10},  {Kind::kGarbage, 16}, {Kind::kStuck, 10},
        {Kind::kWrongEnd, 12},    {Kind::kSlow, 10},    {Kind::kShortRead, 5},
        {Kind::kNoController, 1}, {Kind::kStop, 14},    {Kind::kDropEvent, 10},
        {Kind::kCompany, 4},
};

Kind drawKind(Random& random) {
    int total = 0;
    for (const Weight& row : kWeights) total += row.weight;
    int at = random.below(static_cast<size_t>(total));
    for (const Weight& row : kWeights) {
        at -= row.weight;
        if (at < 0) return row.kind;
    }
    return Kind::kMissing;
}

unsigned usersOf(const Schedule& schedule) {
    unsigned users = 0;
    for (const Task& task : schedule.tasks) {
        switch (task.call) {
            case Task::Call::kTrigger:
                users |= schedule.is31() ? kTrigger31 : kTrigger40;
                break;
            case Task::Call::kErase:
                users |= kErase;
                break;
            case Task::Call::kSnapshot:
                users |= kSnapshot;
                break;
            case Task::Call::kQueries:
                users |= kQueries;
                break;
        }
    }
    return users;
}

/** 1 to `limit`, small numbers more often than great ones. */
int drawNumber(Random& random, size_t limit) {
    return 1 + random.below(1 + static_cast<size_t>(random.below(limit)));
}

Moment drawMoment(Random& random) {
    const int at = random.below(100);
    if (at < 45) return {};
    if (at < 65) return {Moment::Mark::kSleep, drawNumber(random, 8)};
    if (at < 70) return {Moment::Mark::kSleep, drawNumber(random, 150)};
    return {Moment::Mark::kLogLine, drawNumber(random, 100)};
}

std::string drawRanges(Random& random, int count, char separator) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        if (i > 0) text += separator;
        text += std::to_string(random.below(1000000)) + "," + std::to_string(1 + random.below(64));
    }
    return text;
}

Task drawTask(Random& random) {
    const int at = random.below(100);
    if (at < 50) {
        return {Task::Call::kTrigger, drawRanges(random, 1 + random.below(14), ',') + ","};
    }
    if (at < 78) return {Task::Call::kSnapshot, ""};
    if (at < 90) return {Task::Call::kErase, drawRanges(random, 1 + random.below(3), ':')};
    return {Task::Call::kQueries, ""};
}

std::string drawDevice(Random& random) {
    std::string device = random.pick(sim::profiles()).name;
    device += random.percent(50) ? ",platform=mtk" : ",platform=qcom";
    // Four ranges in a zone, so that a trigger has several.
    device += ",ranges=4";
    for (const char* key : {"analysis", "optimise", "mapping", "backup_idle", "backup", "drop"}) {
        device += std::string(",") + key + "=" + usualValue(key);
    }
    device += ",linear=" + std::to_string(random.below(2));
    device += ",snapshot=" + std::to_string(2 * random.below(2));
    device += ",bootlun=" + std::to_string(random.below(8) * 16909320);
    device += ",snapbootlun=" + std::to_string(random.below(8) * 16909320);
    return device;
}

std::vector<Node> nodesFor(unsigned users, bool Node::*use, bool others) {
    std::vector<Node> nodes;
    for (const Node& node : kNodes) {
        if ((node.users & users) != 0 && (others || node.*use)) nodes.push_back(node);
    }
    return nodes;
}

/** A fault at a node; one without a key if no node fits. */
Event drawNodeFault(Random& random, Kind kind, unsigned users) {
    const bool any = kind == Kind::kMissing || kind == Kind::kDenied;
    const std::vector<Node> nodes =
            nodesFor(users, kind == Kind::kWriteError ? &Node::is_written : &Node::is_read, any);
    if (nodes.empty()) return {kind, {}, "", ""};
    const Node& node = random.pick(nodes);
    const bool is_file = node.is_read || node.is_written;
    // The bytes of a partition are no text to replace.
    if (kind == Kind::kGarbage && std::string_view(node.name) == "gsort") return {kind, {}, "", ""};
    if (kind == Kind::kGarbage) {
        return {kind, {}, std::string("node.") + node.name, random.pick(kGarbage)};
    }
    const char* fault = "missing";
    if (kind == Kind::kDenied && is_file) {
        const bool reading = node.is_read && (!node.is_written || random.percent(50));
        fault = reading ? "unreadable" : "unwritable";
    } else if (kind == Kind::kReadError) {
        fault = "read-error";
    } else if (kind == Kind::kWriteError) {
        fault = "write-error";
    } else {
        kind = Kind::kMissing;
    }
    return {kind, {}, std::string("fault.") + node.name, fault};
}

Event drawMisbehaviour(Random& random, Kind kind, unsigned users) {
    std::vector<const Misbehaviour*> rows;
    for (const Misbehaviour& row : kMisbehaviours) {
        if (row.kind == kind && (row.users & users) != 0) rows.push_back(&row);
    }
    if (rows.empty()) return {kind, {}, "", ""};
    const Misbehaviour& row = *random.pick(rows);
    return {kind, {}, row.key, random.pick(row.values)};
}

/** The host controller or its driver are not there when the service looks for them first. */
Event noController(Random& random, const Schedule& schedule) {
    const bool mtk = schedule.device.find("platform=mtk") != std::string::npos;
    const char* names[] = {mtk ? "ufshcd-mtk" : "ufshcd-qcom",
                           mtk ? "112b0000.ufshci" : "1d84000.ufshc"};
    return {Kind::kNoController, {}, std::string("fault.") + random.pick(names), "missing"};
}

/** So that an event which is to fall into a backup does. */
void backUpFirst(Schedule& schedule) {
    auto& tasks = schedule.tasks;
    const auto backup = std::find_if(tasks.begin(), tasks.end(), [](const Task& task) {
        return task.call == Task::Call::kSnapshot;
    });
    if (backup != tasks.end()) tasks.erase(backup);
    tasks.insert(tasks.begin(), {Task::Call::kSnapshot, ""});
}

void addEvent(Random& random, Schedule& schedule, Kind kind) {
    const unsigned users = usersOf(schedule);
    Event event{kind, {}, "", ""};
    switch (kind) {
        case Kind::kNoController:
            schedule.events.push_back(noController(random, schedule));
            return;
        case Kind::kCompany:
            schedule.company = drawNumber(random, 60);
            return;
        case Kind::kDropEvent:
            backUpFirst(schedule);
            event.value = random.percent(60) ? "awaited" : "at once";
            event.moment = {Moment::Mark::kSleep, drawNumber(random, 8)};
            break;
        case Kind::kStop:
            if ((users & kTrigger) == 0 && random.percent(75)) return;
            event.value = "stop";
            event.moment = drawMoment(random);
            schedule.events.push_back(event);
            if (random.percent(50)) return;
            event.value = "continue";
            break;
        case Kind::kStuck:
        case Kind::kWrongEnd:
        case Kind::kSlow:
        case Kind::kShortRead:
            event = drawMisbehaviour(random, kind, users);
            break;
        default:
            event = drawNodeFault(random, kind, users);
    }
    if (kind != Kind::kDropEvent) {
        if (event.key.empty() && kind != Kind::kStop) return;
        event.moment = drawMoment(random);
    }
    const auto same = [&event](const Event& other) {
        return !event.key.empty() && event.key == other.key;
    };
    if (std::none_of(schedule.events.begin(), schedule.events.end(), same)) {
        schedule.events.push_back(event);
    }
}

/** Takes out what the service is allowed to lose its process by. */
void reconcile(Schedule& schedule) {
    auto& events = schedule.events;
    if (events.size() > kMaxEvents) events.resize(kMaxEvents);
    const bool spoilt = schedule.has(Kind::kNoController);
    // Without its directory the worker's drop ends the process.
    if (spoilt) {
        schedule.company = 0;
        events.erase(
                std::remove_if(events.begin(), events.end(),
                               [](const Event& event) { return event.kind == Kind::kDropEvent; }),
                events.end());
    }
    // The table of states takes in unknown words and the lack of one, and nothing locks it.
    const bool unknown_words = std::any_of(events.begin(), events.end(), [](const Event& event) {
        return event.key == "node.status" || event.key == "fault.status";
    });
    for (Event& event : events) {
        if (event.kind == Kind::kDropEvent && unknown_words) event.value = "awaited";
    }
}

const char* nameOf(Task::Call call) {
    constexpr const char* kNames[] = {"trigger", "erase", "snapshot", "queries"};
    return kNames[static_cast<size_t>(call)];
}

std::string describe(const Moment& moment) {
    switch (moment.mark) {
        case Moment::Mark::kSleep:
            return "at sleep " + std::to_string(moment.number);
        case Moment::Mark::kLogLine:
            return "at line " + std::to_string(moment.number);
        default:
            return "at the start";
    }
}

}  // namespace

const char* nameOf(Kind kind) {
    constexpr const char* kNames[kKinds] = {
            "missing", "denied",     "read error", "write error", "garbage",
            "stuck",   "wrong end",  "slow",       "short read",  "no controller",
            "stop",    "drop event", "company",    "kill",
    };
    return kNames[static_cast<size_t>(kind)];
}

bool Schedule::has(Kind kind) const {
    if (kind == Kind::kKill) return kill_at > 0;
    if (kind == Kind::kCompany) return company > 0;
    return std::any_of(events.begin(), events.end(),
                       [kind](const Event& event) { return event.kind == kind; });
}

std::string usualValue(const std::string& key) {
    constexpr struct {
        const char* key;
        const char* value;
    } kUsual[] = {
            {"analysis", "6"},      {"analysis_end", "-1"}, {"optimise", "6"},
            {"optimise_end", "-1"}, {"mapping", "3"},       {"mapping_end", "-1"},
            {"accept", "0"},        {"clear", "0"},         {"report", "4096"},
            {"backup_idle", "1"},   {"backup", "2"},        {"backup_end", "2"},
            {"drop", "1"},          {"drop_end", "-1"},     {"gsort_size", "16777216"},
    };
    for (const auto& row : kUsual) {
        if (key == row.key) return row.value;
    }
    return "none";
}

Schedule draw(uint64_t seed, uint64_t run) {
    Random random(seed, run);
    Schedule schedule;
    schedule.device = drawDevice(random);
    for (int count = drawNumber(random, 3); count > 0; --count) {
        schedule.tasks.push_back(drawTask(random));
    }
    for (int count = 1 + random.below(3); count > 0; --count) {
        addEvent(random, schedule, drawKind(random));
    }
    while (schedule.events.empty()) addEvent(random, schedule, drawKind(random));
    if (random.percent(20)) {
        const int scale = 1 << random.below(11);
        schedule.kill_at = scale + random.below(static_cast<size_t>(scale));
    }
    reconcile(schedule);
    for (int count = 1 + random.below(2); count > 0; --count) {
        schedule.seams.push_back(random.below(11));
    }
    schedule.drops_by_event = random.percent(50);
    return schedule;
}

std::string describe(const Schedule& schedule) {
    std::string text = "device " + schedule.device + "\n";
    for (const Task& task : schedule.tasks) {
        text += std::string("task ") + nameOf(task.call) + " " + task.request + "\n";
    }
    for (const Event& event : schedule.events) {
        text += std::string("event ") + nameOf(event.kind) + " " + describe(event.moment) + ": " +
                event.key + (event.key.empty() ? "" : "=") + event.value.substr(0, 80) + "\n";
    }
    if (schedule.company > 0) text += "company " + std::to_string(schedule.company) + "\n";
    if (schedule.kill_at > 0) text += "kill at call " + std::to_string(schedule.kill_at) + "\n";
    return text;
}

}  // namespace soak
