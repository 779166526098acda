#include "sim/Settings.h"

#include <algorithm>
#include <stdexcept>

#include <android-base/parseint.h>
#include <android-base/strings.h>

namespace sim {

namespace {

struct Key {
    const char* name;
    int64_t value;
    const char* meaning;
};

constexpr Key kKeys[] = {
        {"wear", 120, "program/erase cycles that the health report tells"},
        {"tbw", 1, "SKhynix: bytes written so far; 0 moves the cycles to another field"},
        {"ranges", 0, "ranges that a list may hold; 0: as the profile says"},
        {"accept", 0, "UFS 3.1: seconds until a list is accepted"},
        {"analysis", 12, "seconds that an analysis takes"},
        {"analysis_end", -1, "state that an analysis ends in; -1: success"},
        {"optimise", 60, "seconds that an optimisation takes"},
        {"optimise_end", -1, "state that an optimisation ends in; -1: success"},
        {"mapping", 9, "seconds that a linear mapping takes"},
        {"mapping_end", -1, "state that a linear mapping ends in; -1: success"},
        {"linear", 1, "UFS 4.0: whether a linear mapping is offered, 1 or 0"},
        {"clear", 0, "seconds until the device is idle after a clear"},
        {"report", 4096, "characters of the fragmentation report that are served"},
        {"eua", 1, "whether EUA is offered, 1 or 0"},
        {"eua_size", 65536, "size that is offered for EUA"},
        {"snapshot", 0, "state that the snapshot is in at first, 0 (idle) to 6 (internal_error)"},
        {"backup_idle", 3, "MICRON, KIOXIA: seconds that a backup still shows idle"},
        {"backup", 10, "seconds that a backup takes after that"},
        {"backup_end", 2, "state that a backup ends in"},
        {"drop", 4, "MICRON, KIOXIA: seconds that a drop takes"},
        {"drop_end", -1, "state that a drop ends in; -1: 0 for MICRON and KIOXIA, 4 for others"},
        {"bootlun", 1, "gsort: the boot LUN in use"},
        {"snapbootlun", 0, "gsort: the boot LUN that the snapshot protects"},
        {"userdata_gib", 230, "size of the user data file system"},
        {"userdata_free_gib", 80, "free space of it"},
};

int64_t parseNumber(const std::string& text) {
    if (text == "stuck") return kStuck;
    int64_t number = 0;
    if (!android::base::ParseInt(text, &number)) {
        throw std::invalid_argument("\"" + text + "\" is no number");
    }
    return number;
}

}  // namespace

Series Series::parse(std::string_view text) {
    Series series;
    for (const std::string& value : android::base::Split(std::string(text), "/")) {
        series.values_.push_back(parseNumber(value));
    }
    return series;
}

int64_t Series::take() {
    const int64_t value = values_[next_];
    if (next_ + 1 < values_.size()) ++next_;
    return value;
}

void Settings::set(std::string_view key, std::string_view value) {
    const auto series = series_.find(key);
    if (series == series_.end()) {
        throw std::invalid_argument("the device has no setting \"" + std::string(key) + "\"");
    }
    series->second = Series::parse(value);
}

std::string Settings::describe() {
    std::string text;
    for (const Key& key : kKeys) {
        std::string line = std::string("  ") + key.name + "=" + std::to_string(key.value);
        line.resize(std::max<size_t>(line.size() + 1, 27), ' ');
        text += line + key.meaning + "\n";
    }
    return text;
}

std::map<std::string, Series, std::less<>> Settings::defaults() {
    std::map<std::string, Series, std::less<>> series;
    for (const Key& key : kKeys) series.emplace(key.name, Series(key.value));
    return series;
}

}  // namespace sim
