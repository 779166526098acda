#include "bench/Table.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>

namespace bench {

namespace {

constexpr size_t kColumns = 6;
/** What separates the columns of a packed table. */
constexpr char kSeparator = '\t';

using Cells = std::array<std::string, kColumns>;

const char* nameOf(Verdict verdict) {
    switch (verdict) {
        case Verdict::kMet:
            return "met";
        case Verdict::kMissed:
            return "MISSED";
        case Verdict::kSlow:
            return "slow";
        default:
            return "";
    }
}

Cells cellsOf(const Row& row) {
    return {row.operation, row.library, row.floor, row.ratio, row.wanted, nameOf(row.verdict)};
}

bool isTitle(const Row& row) {
    return row.library.empty();
}

}  // namespace

std::string Table::pack() const {
    std::string text;
    for (const Row& row : rows_) {
        for (const std::string* cell :
             {&row.operation, &row.library, &row.floor, &row.ratio, &row.wanted}) {
            text += *cell + kSeparator;
        }
        text += std::to_string(static_cast<int>(row.verdict)) + "\n";
    }
    return text;
}

void Table::unpack(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream cells(line);
        Row row;
        for (std::string* cell :
             {&row.operation, &row.library, &row.floor, &row.ratio, &row.wanted}) {
            std::getline(cells, *cell, kSeparator);
        }
        int verdict = 0;
        cells >> verdict;
        row.verdict = static_cast<Verdict>(verdict);
        rows_.push_back(row);
    }
}

std::string Table::format() const {
    const Cells head = {"operation", "library", "floor", "ratio", "wanted", "verdict"};
    std::array<size_t, kColumns> widths{};
    for (size_t i = 0; i < kColumns; ++i) widths[i] = head[i].size();
    for (const Row& row : rows_) {
        if (isTitle(row)) continue;
        const Cells cells = cellsOf(row);
        for (size_t i = 0; i < kColumns; ++i) widths[i] = std::max(widths[i], cells[i].size());
    }
    std::string text;
    const auto add = [&](const Cells& cells) {
        std::string line;
        for (size_t i = 0; i < kColumns; ++i) {
            std::string cell = cells[i];
            cell.resize(widths[i] + 2, ' ');
            line += cell;
        }
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    };
    add(head);
    for (const Row& row : rows_) {
        if (isTitle(row)) {
            text += "\n" + row.operation + "\n";
        } else {
            add(cellsOf(row));
        }
    }
    return text;
}

bool Table::nothingMissed() const {
    return std::none_of(rows_.begin(), rows_.end(),
                        [](const Row& row) { return row.verdict == Verdict::kMissed; });
}

std::string decimal(double value, int digits) {
    char text[64];
    snprintf(text, sizeof(text), "%.*f", digits, value);
    return text;
}

std::string duration(double nanoseconds) {
    if (nanoseconds < 1e3) return decimal(nanoseconds, 0) + " ns";
    if (nanoseconds < 1e6) return decimal(nanoseconds / 1e3, 1) + " us";
    return decimal(nanoseconds / 1e6, 1) + " ms";
}

}  // namespace bench
