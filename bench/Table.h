#pragma once

#include <string>
#include <vector>

namespace bench {

/** What a figure is measured against its wish. */
enum class Verdict {
    /** There is no wish. */
    kNone,
    kMet,
    /** A count that does not depend on the machine is beyond its wish, or a time is by far. */
    kMissed,
    /** A time is beyond its wish, on this machine and this once. */
    kSlow
};

/** The verdict on a count. */
inline Verdict judgeCount(bool met) {
    return met ? Verdict::kMet : Verdict::kMissed;
}
/** The verdict on a time; one that is not met may be `explicable` by another or a busy machine. */
inline Verdict judgeTime(bool met, bool explicable) {
    return met ? Verdict::kMet : explicable ? Verdict::kSlow : Verdict::kMissed;
}

/** A figure of the library beside that of the floor, as texts. */
struct Row {
    std::string operation;
    std::string library;
    std::string floor = "-";
    std::string ratio = "-";
    std::string wanted = "-";
    Verdict verdict = Verdict::kNone;
};

/** The figures of a run, under titles. */
class Table {
  public:
    void title(const std::string& text) { rows_.push_back({text, "", "", "", "", {}}); }
    void add(Row row) { rows_.push_back(std::move(row)); }

    /** Adds the rows that `text` has, another table's pack(). */
    void unpack(const std::string& text);
    /** The rows as a text, for another process. */
    std::string pack() const;

    /** The table as it is printed. */
    std::string format() const;
    /** Whether no figure has the verdict kMissed. */
    bool nothingMissed() const;

  private:
    std::vector<Row> rows_;
};

/** `value` with so many digits behind the point. */
std::string decimal(double value, int digits);
/** Nanoseconds in the unit that suits them. */
std::string duration(double nanoseconds);

}  // namespace bench
