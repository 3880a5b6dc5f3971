// Lines of the command line, and what a run has along them as a table.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"

namespace kestralum {

struct LineRequest {
    std::string name;        // the text
    Vec3 from{}, to{};       // m
    std::int32_t count = 2;  // of points, both ends included
};

// "x y z x y z n". Why the text is none; empty: `line` has it.
[[nodiscard]] std::string read_line_request(const std::string& text, LineRequest& line);

// "log\line_NAME.csv": the model file's name without its folder and its last ending.
std::string line_file_name(std::string_view model_file_name);

// A row per line, frame and point: of the frames that the run holds, which are all but those of an explicit
// run before the last. Values are those at the nodes as the element interpolates them; none outside the
// body. outside: per line how many of its points are.
std::string line_csv(const Model& model, const Run& run, const std::vector<LineRequest>& lines,
                     std::vector<std::int64_t>& outside);

// Writes the table and notes lines with points outside; false with an error where it cannot be written.
bool write_lines(const Model& model, const Run& run, const std::vector<LineRequest>& lines,
                 Progress& progress);

}  // namespace kestralum
