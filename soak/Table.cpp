#include "soak/Table.h"

#include <iomanip>

namespace soak {

namespace {

int countStruck(const Schedule& schedule, const Record& record, Kind kind) {
    if (kind == Kind::kKill) return record.killed ? 1 : 0;
    if (kind == Kind::kCompany) return 1;
    int count = 0;
    for (size_t i = 0; i < schedule.events.size(); ++i) {
        if (schedule.events[i].kind == kind && record.struck[i]) ++count;
    }
    return count;
}

}  // namespace

void Table::add(const Schedule& schedule, const Record& record) {
    addRun(all_, record);
    if (record.kill_skipped) ++kills_skipped_;
    for (size_t i = 0; i < kKinds; ++i) {
        const auto kind = static_cast<Kind>(i);
        if (!schedule.has(kind)) continue;
        addRun(rows_[i], record);
        const int struck = countStruck(schedule, record, kind);
        rows_[i].struck += struck;
        all_.struck += struck;
    }
}

void Table::addRun(Row& row, const Record& record) {
    const bool violated = record.violation[0] != '\0';
    ++row.runs;
    row.escapes += record.escapes > 0 ? 1 : 0;
    row.stopped += record.stopped ? 1 : 0;
    row.killed += record.killed ? 1 : 0;
    row.recovered += violated ? 0 : 1;
    row.violations += violated ? 1 : 0;
}

void Table::print(std::ostream& out) const {
    out << "kind of fault |  runs | struck | escapes | stopped | killed | recovered | violations\n"
           "--------------|-------|--------|---------|---------|--------|-----------|-----------\n";
    for (size_t i = 0; i < kKinds; ++i) print(out, nameOf(static_cast<Kind>(i)), rows_[i]);
    print(out, "all", all_);
    if (kills_skipped_ > 0) {
        out << kills_skipped_ << " kills skipped: there is no ptrace here\n";
    }
}

void Table::print(std::ostream& out, const char* name, const Row& row) {
    out << std::left << std::setw(13) << name << std::right << " | " << std::setw(5) << row.runs
        << " | " << std::setw(6) << row.struck << " | " << std::setw(7) << row.escapes << " | "
        << std::setw(7) << row.stopped << " | " << std::setw(6) << row.killed << " | "
        << std::setw(9) << row.recovered << " | " << std::setw(10) << row.violations << "\n";
}

}  // namespace soak
