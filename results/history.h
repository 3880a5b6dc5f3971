// A run as curves: named columns with units over time, load factor, load case or mode.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "model/run.h"

namespace kestralum {

struct HistoryColumn {
    std::string name, unit;      // "Kinetic energy", "J"; unit "" of pure numbers
    std::vector<double> values;  // a row per frame; not a number where nothing is known

    // Of frame `row` (0-based) of the run.
    std::function<double(const Run&, std::size_t row)> value;
};

struct History {
    std::string axis, axis_unit;  // "Time", "s"
    std::vector<double> x;        // row k belongs to frame k + 1
    std::vector<HistoryColumn> columns;

    bool ordered = true;    // x never falls from row to row
    bool numbered = false;  // x counts load cases or modes
    bool of_frames = true;  // else the rows are places, and x is where they are
};

// "Kinetic energy [J]"; the name alone of a pure number.
std::string with_unit(const std::string& name, const std::string& unit);

// What there is to see of a run:
// explicit: what its history file tells, and the sum of the energies;
// nonlinear: the same, and the reactions; static: what the cases' reports tell; shapes: Hz or load factor.
// The nodes' displacements (m) and Mises stresses (Pa) follow, but for shapes, whose size is any. `nodes`:
// of the run's mesh, 1-based; numbers that it does not have are left out.
History make_history(const Run& run, std::span<const std::int32_t> nodes);

// Adds the rows of the frames that a run under way has reached since.
void extend(History& history, const Run& run);

// The rows of those columns as lines "1.5,2", a heading first; a place is empty where nothing is known.
std::string csv_text(const History& history, std::span<const std::size_t> columns);

struct CurvePoint {
    double x = 0, y = 0;
};

// What a screen of `width` columns shows of a curve between `from` and `to`, the neighbours beyond included:
// in each column the first, lowest, highest and last point. x never falls; points without a number are left
// out.
std::vector<CurvePoint> thinned(std::span<const double> x, std::span<const double> y, double from, double to,
                                int width);

}  // namespace kestralum
