// Planes of the command line, and what they carry as a table.
#pragma once

#include <string>
#include <string_view>

#include "model/model.h"
#include "model/progress.h"
#include "model/run.h"

namespace kestralum {

// "x=0.1", or "px py pz nx ny nz": a point (m) and the direction of the normal. Why the text is none; empty:
// `plane` has it, named by the text.
[[nodiscard]] std::string read_section_plane(const std::string& text, SectionPlane& plane);

// "log\section_NAME.csv": the model file's name without its folder and its last ending.
std::string section_file_name(std::string_view model_file_name);

// All frames' sums, a line for all parts and one for each part that is cut.
std::string section_csv(const Model& model, const Run& run);

// The last frame's sums, or those of all load cases; nothing where no planes were given.
void print_sections(const Model& model, const Run& run, Progress& progress);

// Writes the table; false with an error where it cannot be written.
bool write_sections(const Model& model, const Run& run, Progress& progress);

}  // namespace kestralum
