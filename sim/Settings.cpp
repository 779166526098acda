#include "sim/Settings.h"

#include <algorithm>
#include <limits>
#include <set>
#include <stdexcept>

#include <android-base/parseint.h>
#include <android-base/strings.h>

#include "fbo/utils/Makers.h"
#include "sim/Names.h"

namespace sim {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

/** The devices that a setting changes anything on. */
enum class Scope { kAll, kUfs40, kUfs31, kSlowSnapshot, kTbw };

struct Key {
    const char* name;
    int64_t value;
    /** The numbers that it takes. */
    int64_t least, most;
    Scope scope;
    const char* meaning;
};

/** The largest number that the service can read from a node. */
constexpr int64_t kMax = std::numeric_limits<int32_t>::max();
constexpr int64_t kMaxReport = std::numeric_limits<uint32_t>::max();
/** The largest state that a device can tell: a byte. */
constexpr int64_t kMaxState = 255;

// clang-format off
constexpr Key kKeys[] = {
        {"wear", 120, 0, kMaxReport, Scope::kAll,
         "program/erase cycles that the health report tells"},
        {"tbw", 1, 0, kMaxReport, Scope::kTbw,
         "bytes written so far; 0 moves the cycles to another field"},
        {"ranges", 0, 0, kMax, Scope::kAll, "ranges that a list may hold; 0: as the profile says"},
        {"accept", 0, 0, kStuck, Scope::kUfs31, "seconds until a list is accepted"},
        {"analysis", 12, 0, kStuck, Scope::kAll, "seconds that an analysis takes"},
        {"analysis_end", -1, -1, kMaxState, Scope::kAll,
         "state that an analysis ends in; -1: success"},
        {"optimise", 60, 0, kStuck, Scope::kAll, "seconds that an optimisation takes"},
        {"optimise_end", -1, -1, kMaxState, Scope::kAll,
         "state that an optimisation ends in; -1: success"},
        {"mapping", 9, 0, kStuck, Scope::kUfs40, "seconds that a linear mapping takes"},
        {"mapping_end", -1, -1, kMaxState, Scope::kUfs40,
         "state that a linear mapping ends in; -1: success"},
        {"linear", 1, 0, 1, Scope::kUfs40, "whether a linear mapping is offered, 1 or 0"},
        {"clear", 0, 0, kStuck, Scope::kAll, "seconds until the device is idle after a clear"},
        {"report", 4096, 0, 4096, Scope::kAll,
         "characters of the fragmentation report that are served"},
        {"eua", 1, 0, 1, Scope::kAll, "whether EUA is offered, 1 or 0"},
        {"eua_size", 65536, 0, kMax, Scope::kAll, "size that is offered for EUA"},
        {"snapshot", 0, 0, 6, Scope::kAll,
         "state that the snapshot is in at first, 0 (idle) to 6 (internal_error)"},
        {"backup_idle", 3, 0, kStuck, Scope::kSlowSnapshot,
         "seconds that a backup still shows idle"},
        {"backup", 10, 0, kStuck, Scope::kAll, "seconds that a backup takes after that"},
        {"backup_end", 2, 0, 6, Scope::kAll, "state that a backup ends in"},
        {"drop", 4, 0, kStuck, Scope::kSlowSnapshot, "seconds that a drop takes"},
        {"drop_end", -1, -1, 6, Scope::kAll,
         "state that a drop ends in; -1: 0 for MICRON and KIOXIA, 4 for others"},
        {"bootlun", 1, -kMax - 1, kMax, Scope::kAll, "gsort: the boot LUN in use"},
        {"snapbootlun", 0, -kMax - 1, kMax, Scope::kAll,
         "gsort: the boot LUN that the snapshot protects"},
        {"userdata_gib", 230, 0, kMax, Scope::kAll, "size of the user data file system"},
        {"userdata_free_gib", 80, 0, kMax, Scope::kAll, "free space of it"},
};
// clang-format on

/** What the devices of a scope have in common. */
const char* describe(Scope scope) {
    switch (scope) {
        case Scope::kUfs40:
            return "UFS 4.0";
        case Scope::kUfs31:
            return "UFS 3.1";
        case Scope::kSlowSnapshot:
            return "MICRON, KIOXIA";
        case Scope::kTbw:
            return "SKhynix";
        default:
            return "";
    }
}

bool holds(Scope scope, const Profile& profile) {
    const Maker* const maker = findMaker(profile.vendor);
    switch (scope) {
        case Scope::kUfs40:
            return profile.generation == Generation::kUfs40;
        case Scope::kUfs31:
            return profile.generation == Generation::kUfs31;
        case Scope::kSlowSnapshot:
            return hasSlowSnapshot(profile.vendor);
        case Scope::kTbw:
            return maker != nullptr && maker->cycles_without_tbw.width > 0;
        default:
            return true;
    }
}

/** The largest number of `key`: no more cycles than the health report has room for. */
int64_t mostOf(const Key& key, const Profile& profile) {
    const Maker* const maker = findMaker(profile.vendor);
    if (maker == nullptr || key.name != std::string_view("wear")) return key.most;
    return (int64_t{1} << 8 * maker->cycles.width) - 1;
}

const Key& findKey(std::string_view name) {
    std::set<std::string> names;
    for (const Key& key : kKeys) {
        if (name == key.name) return key;
        names.insert(key.name);
    }
    throw std::invalid_argument("the device has no setting \"" + std::string(name) + "\"" +
                                didYouMean(name, names));
}

int64_t parseNumber(const std::string& text) {
    if (text == "stuck") return kStuck;
    int64_t number = 0;
    if (!android::base::ParseInt(text, &number)) {
        throw std::invalid_argument("\"" + text + "\" is no number");
    }
    return number;
}

}  // namespace

Series Series::parse(std::string_view text, int64_t least, int64_t most) {
    Series series;
    for (const std::string& value : android::base::Split(std::string(text), "/")) {
        const int64_t number = parseNumber(value);
        if (number < least || number > most) {
            throw std::invalid_argument(
                    value + " is not from " + std::to_string(least) + " to " +
                    (most == kStuck ? std::string("stuck") : std::to_string(most)));
        }
        series.values_.push_back(number);
    }
    return series;
}

int64_t Series::take() {
    const int64_t value = values_[next_];
    if (next_ + 1 < values_.size()) ++next_;
    return value;
}

void Settings::set(std::string_view name, std::string_view value) {
    const Key& key = findKey(name);
    if (!holds(key.scope, profile_)) {
        throw std::invalid_argument("this does nothing on " + profile_.name + ", only on " +
                                    sim::describe(key.scope));
    }
    series_.at(key.name) = Series::parse(value, key.least, mostOf(key, profile_));
}

bool Settings::knows(std::string_view name) {
    return std::any_of(std::begin(kKeys), std::end(kKeys),
                       [&](const Key& key) { return name == key.name; });
}

std::string Settings::describe() {
    std::string text;
    for (const Key& key : kKeys) {
        std::string line = std::string("  ") + key.name + "=" + std::to_string(key.value);
        line.resize(std::max<size_t>(line.size() + 1, 27), ' ');
        const std::string scope = sim::describe(key.scope);
        text += line + scope + (scope.empty() ? "" : ": ") + key.meaning + "\n";
    }
    return text;
}

std::map<std::string, Series, std::less<>> Settings::defaults() {
    std::map<std::string, Series, std::less<>> series;
    for (const Key& key : kKeys) series.emplace(key.name, Series(key.value));
    return series;
}

}  // namespace sim
