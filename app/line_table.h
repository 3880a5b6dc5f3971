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
    std::string set;         // whose nodes are the points; empty: those of a line
    Vec3 from{}, to{};       // m
    std::int32_t count = 2;  // of points, both ends included
};

// "x y z x y z n", or "set NAME". Why the text is none; empty: `line` has it.
[[nodiscard]] std::string read_line_request(const std::string& text, LineRequest& line);

// The first request whose set the mesh does not have; null where there is none.
const LineRequest* without_set(const Mesh& mesh, const std::vector<LineRequest>& lines);

// "log\line_NAME.csv": the model file's name without its folder and its last ending.
std::string line_file_name(std::string_view model_file_name);

// Writes a row per line, frame and point, of the frames that the run holds, which are all but those of an
// explicit run before the last, and notes lines with points outside the body. Values are those at the nodes
// as the element interpolates them; none outside. False with an error where the table cannot be written.
bool write_lines(const Model& model, const Run& run, const std::vector<LineRequest>& lines,
                 Progress& progress);

}  // namespace kestralum
