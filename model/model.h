// A model: what its files define and the mesh made from it. Readers make it; an analysis never alters it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "model/explicit_records.h"
#include "model/mesh.h"
#include "model/mesh_sets.h"
#include "model/records.h"
#include "model/version.h"

namespace kestralum {

// Settings of the explicit and the nonlinear analysis, from the control file beside the model; 0 until one is
// read.
struct AnalysisControl {
    double d_time = 0;                  // time step, s
    double end_time = 0;                // s
    std::int32_t output_frequency = 0;  // steps between outputs
    double c_alfa = 0;                  // damping as a fraction of the critical one, per degree of freedom
    std::int32_t gravity_axis = -1;     // 0 x, 1 y, 2 z, -1 off
    std::int32_t gravity_sign = 1;      // +1 or -1
    bool plastic = false;
    bool element_contact = false;
    std::int32_t nl_halving = 0;               // how often a nonlinear increment may be halved
    std::vector<double> load_factors{};        // of the nonlinear increments; empty: not given
    FieldExpression load_factor_expression{};  // of `time` = k/step_num, k = 1 … step_num
    bool auto_step = false;                    // d_time auto: the step follows the stable one
    double step_share = 0.9;                   // of it, with auto_step
    double output_time = 0;                    // s between outputs, with auto_step; 0: not given
    double scaled_step = 0;                    // s: elements with a smaller stable step get mass; 0: none do

    double linear_viscosity = 0;  // of bulk viscosity; 0: none
    double quadratic_viscosity = 0;

    // Between outputs, with auto_step; a hundredth of the run where it is not given.
    double output_interval() const { return output_time > 0 ? output_time : end_time / 100; }
    bool operator==(const AnalysisControl&) const = default;
};

// The kind of file that a model's definition came from.
enum class ModelSource {
    start_up,           // the placeholder of the program's start
    model_file,         // whole
    result_file,        // no materials, springs, walls or control: can be viewed, not analysed
    displacement_file,  // the mesh alone
};

struct Model {
    std::string model_file_name = "data\\buckle_pipe_plastic2_v207.txt";
    ModelSource source = ModelSource::start_up;

    // definition, in the order of the files
    std::vector<Material> materials;
    std::vector<Parameter> parameters;
    std::vector<Part> parts;    // PART: working parts
    std::vector<Part> parts_o;  // PART_O: parts as read
    std::vector<SetDefinition> sets;
    std::vector<BoundaryCondition> boundary_conditions;
    std::vector<AppliedForce> forces;
    std::vector<RigidElement> rigid_elements;
    std::vector<RigidForce> rigid_forces;
    std::vector<RigidCombine> rigid_combines;
    std::vector<Load> loads;        // load_info, but for those that rigid elements apply
    std::vector<Load> rigid_loads;  // remote loads by coupling=rigid: they stand in rigid_elements and
                                    // rigid_forces, made anew from here at each reading
    std::vector<LoadCombination> combinations;  // load_combination
    std::vector<TieRecord> ties;                // tie_info
    std::int32_t mode_count = 1;                // mode_num / step_num of the model file
    std::int32_t iteration_limit = 0;           // "iteration" of the model file
    HexahedronForm hexahedra = HexahedronForm::full;
    AnalysisControl control;
    ExplicitTables explicit_tables;  // from the control file

    Mesh mesh;  // as the mesher numbered it
};

// The placeholder model: one node at the origin, no elements, material STEEL, parameter mm.
Model placeholder_model();

}  // namespace kestralum
