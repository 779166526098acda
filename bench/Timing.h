#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "bench/Table.h"

namespace bench {

/** What a call costs, in nanoseconds of CPU time of the calling thread, kernel included. */
struct Cost {
    double library;
    double floor;
};

/** How often is measured: rounds in which either makes so many calls, one after the other. */
struct Effort {
    int calls;
    int rounds;
};

/** Measures both in turn, round by round, and keeps the least of each. */
Cost measure(const std::function<void()>& library, const std::function<void()>& floor,
             Effort effort);

/** A row for `cost`, which is to be at most `most` times the floor; 0: no wish. */
Row costRow(const std::string& operation, const Cost& cost, double most);

/** Lengths of texts from 1 KiB to 1 MiB. */
const std::vector<size_t>& sizes();

/** A figure by the length of the text. */
using Curve = std::vector<std::pair<double, double>>;

/**
 * The power of the length that a figure grows with: the slope of the straight line of least
 * squares through the logarithms. 1 is linear.
 */
double exponent(const Curve& curve);

/**
 * The part of a cost that grows, where it is what counts: without `fixed`, which a text of next to
 * no length costs too, and without the lengths at which that is the larger part.
 */
Curve growth(const Curve& curve, double fixed);

enum class Figure { kCount, kTime };

/** A row for the exponents of a figure; that of the library is to be 0.9 to 1.1. */
Row exponentRow(const std::string& operation, double library, double floor, Figure figure);

}  // namespace bench
