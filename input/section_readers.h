// One reader per section of the model file: records become a table, which takes the place of the one
// before, and the table is listed on the console. Ends early where `progress` asks to stop: the table is then
// not to be used.
#pragma once

#include <map>
#include <string>

#include "input/model_sections.h"
#include "model/model.h"

namespace kestralum {

// Values of parameters given beside the file.
struct OverrideTable {
    std::map<std::string, std::string, std::less<>> expressions;  // by name
    std::vector<Parameter> lasting;  // those that the file does not define: head of every parameter table
};

void read_material_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);
void read_parameter(const FileSection& section, const OverrideTable& overrides, Model& model,
                    InputRemarks& remarks, Progress& progress);
void read_part_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);
void read_set_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);
void read_boundary_condition(const FileSection& section, Model& model, InputRemarks& remarks,
                             Progress& progress);
void read_apply_force(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);
void read_rigid_element(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);
void read_rigid_force(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);
void read_rigid_combine(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);

// mode_num, step_num, iteration: the integer after the keyword.
void read_count(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);

// hexahedra: the word after the keyword.
void read_hexahedra(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);

// Number of the named element, the last of that name; -1 where there is none.
std::int32_t find_rigid_element(const std::vector<RigidElement>& elements, std::string_view name);

// Value of an override; an error that names it, and 0, where it has none.
double evaluate_override(const std::string& name, const std::string& expression,
                         std::span<const Parameter> parameters, InputRemarks& remarks);

}  // namespace kestralum
