#pragma once

#include <array>
#include <ostream>

#include "soak/Record.h"
#include "soak/Schedule.h"

namespace soak {

/** Sums up runs: a row for each kind of event, of the runs in which it was to happen. */
class Table {
  public:
    void add(const Schedule& schedule, const Record& record);

    int violations() const { return all_.violations; }

    void print(std::ostream& out) const;

  private:
    struct Row {
        int runs = 0;
        int struck = 0;
        int escapes = 0;
        int stopped = 0;
        int killed = 0;
        int recovered = 0;
        int violations = 0;
    };
    static void addRun(Row& row, const Record& record);
    static void print(std::ostream& out, const char* name, const Row& row);

    std::array<Row, kKinds> rows_;
    Row all_;
    int kills_skipped_ = 0;
};

}  // namespace soak
