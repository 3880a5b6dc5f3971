// A sweep: one analysis of a model for each value of one parameter, or for each pair of values of two.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/analysis_table.h"
#include "input/model_reader.h"
#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"
#include "model/settings.h"

namespace kestralum {

struct SweepAxis {
    std::string name;  // of the parameter
    std::vector<double> values;
};

inline constexpr std::size_t most_sweep_runs = 10000;

// "NAME=FROM:TO:COUNT", COUNT values at equal distances with both ends, or "NAME=V1,V2,…". Why the text is
// refused, one line; empty if it is not.
std::string read_sweep_axis(std::string_view text, SweepAxis& axis);

// A number as it stands in tables, folder names and overrides: the shortest text that reads as the same
// value.
std::string sweep_number(double value);

struct SweepPlan {
    Model base;  // names the model file, and has the tables that the file leaves out; its mesh is not used
    const AnalysisEntry* analysis = nullptr;
    std::optional<std::string> model_text, control_text;  // in place of the two files, which are not opened
    std::vector<SweepAxis> axes;                          // one or two; the values of the second run fastest
    std::vector<ParameterOverride> overrides;             // of other parameters, the same in each run
    RunOptions options;                                   // its log folder is the sweep's
    Settings settings;

    std::size_t runs() const;
    // The values of run `index`, one an axis.
    std::vector<double> values(std::size_t index) const;
    // "h=0.01 b=2"
    std::string text(std::size_t index) const;
};

// Why the axes cannot be swept with these overrides, one line; empty if they can.
std::string refused_axes(std::span<const SweepAxis> axes, std::span<const ParameterOverride> overrides);

struct SweepRow {
    std::size_t index = 0;           // of the run
    std::vector<double> parameters;  // one an axis
    RunStatus status = RunStatus::done;
    std::string error;                              // why the status is not `done`
    std::vector<std::optional<double>> quantities;  // one a row of sweep_columns(); none: does not apply
};

enum class SweepStatus {
    all_done,
    some_failed,
    bad_input,  // nothing was run
    cancelled,
};

struct SweepOutcome {
    SweepStatus status = SweepStatus::all_done;
    std::vector<SweepRow> rows;  // in the order of the values; of a cancelled sweep those that were done
};

// Runs the plan. Each run has a folder of its own, LOG/sweep/NAME_VALUE…, which is removed with its files
// when the run has ended; folders that a sweep left when it was broken off are removed first. Another sweep
// in the same log folder is refused; an analysis in it is not disturbed. Models of fewer than 20 000
// equations run side by side, one thread each, larger ones one after the other with all threads of the
// settings: the figures are the same either way. A run that fails is a row that says why. `on_row` is called
// with each row in the order of the values, from one thread at a time; `progress` counts the rows and gets
// one line where the sweep is refused. A cancel ends the runs under way.
using OnSweepRow = std::function<void(const SweepRow&)>;
SweepOutcome run_sweep(const SweepPlan& plan, const OnSweepRow& on_row, Progress& progress);

}  // namespace kestralum
