// One reader per section of the model file: records become a table, which takes the place of the one
// before, and the table is listed on the console. Ends early where `progress` asks to stop: the table is then
// not to be used.
#pragma once

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

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
void read_load_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);
void read_tie_info(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);

// What the load combinations of a file need until the load cases are known, at its end.
struct UnresolvedCombinations {
    bool given = false;                 // the file has them; otherwise they are an earlier model's
    std::vector<Token> expression;      // one per combination
    std::vector<Parameter> parameters;  // as they are where the section stands
};
void read_load_combination(const FileSection& section, Model& model, UnresolvedCombinations& unresolved,
                           InputRemarks& remarks, Progress& progress);

// At the end of the file. Terms of the combinations; errors where one is not linear or names no load case.
void resolve_combinations(const UnresolvedCombinations& unresolved, Model& model, InputRemarks& remarks);
// Takes what came of earlier rigid remote loads out of the rigid tables, before the sections, and puts what
// comes of those in force there, behind them.
void remove_rigid_loads(Model& model);
void add_rigid_loads(Model& model, InputRemarks& remarks);
// With the mesh: errors where a load, a support on faces or a tie names a part or set that is not there or
// has no faces.
void check_load_places(const Model& model, InputRemarks& remarks);

// mode_num, step_num, iteration: the integer after the keyword.
void read_count(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);

// The directions of rigid forces, in the order of RigidDirection.
inline constexpr std::array<std::string_view, 7> rigid_directions{"x", "y", "z", "rx", "ry", "rz", "n"};

// hexahedra: the word after the keyword.
void read_hexahedra(const FileSection& section, Model& model, InputRemarks& remarks, Progress& progress);

// Number of the named element, the last of that name; -1 where there is none.
std::int32_t find_rigid_element(const std::vector<RigidElement>& elements, std::string_view name);

// Value of an override; an error that names it, and 0, where it has none.
double evaluate_override(const std::string& name, const std::string& expression,
                         std::span<const Parameter> parameters, InputRemarks& remarks);

}  // namespace kestralum
