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

// A force and a moment along a plane's normal, and what is left of them across it.
struct SectionAction {
    double normal = 0, shear = 0;   // N
    double twist = 0, bending = 0;  // N m
};
SectionAction action_of(const Resultant& of, const Vec3& normal);

// What is left of the balance of forces, over the largest force in it; 0 where there is none.
double imbalance(const SectionSum& sum);

// "log\section_NAME.csv": the model file's name without its folder and its last ending.
std::string section_file_name(std::string_view model_file_name);

// All frames' sums, a line for all parts and one for each part that is cut.
std::string section_csv(const Model& model, const Run& run);

// The last frame's sums, or those of all load cases; nothing where no planes were given.
void print_sections(const Model& model, const Run& run, Progress& progress);

// Writes the table; false with an error where it cannot be written.
bool write_sections(const Model& model, const Run& run, Progress& progress);

}  // namespace kestralum
