// What a run of a sweep gives as numbers, and the rows as text.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/sweep.h"

namespace kestralum {

struct SweepColumn {
    const char* title;
    const char* unit;             // "" = none
    bool headline;                // stands in the line of a run that is done
    const char* format;           // of the table, for a double
    std::string heading() const;  // "largest displacement [m]"
};
std::span<const SweepColumn> sweep_columns();

// The quantities of a run; of one with several load cases the largest value of all cases. seconds: of
// reading, meshing and analysis.
std::vector<std::optional<double>> sweep_quantities(const Model& model, const Run& run, double seconds);

// The columns that some row has a value in, indices.
std::vector<std::size_t> used_columns(std::span<const SweepRow> rows);

const char* word_of(RunStatus status);

// "3/5  h=0.01: largest displacement 2.5e-06 m, …" or why the run failed; without a line's end.
std::string sweep_line(const SweepPlan& plan, const SweepRow& row);
// A line of headings and a line for each row.
std::string sweep_table(std::span<const std::string> names, std::span<const SweepRow> rows);
// The same with commas and all digits; names: of the parameters.
std::string sweep_csv(std::span<const std::string> names, std::span<const SweepRow> rows);

std::vector<std::string> axis_names(std::span<const SweepAxis> axes);
// Stored name of the sweep's file: "log\sweep_MODEL.csv".
std::string sweep_file_name(std::string_view model_file_name);

}  // namespace kestralum
