// The model store: every table that readers, meshers, analyses, writers and the view share.
// Definition tables and results are apart; a count is its vector's size.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "model/element_kind.h"
#include "model/explicit_records.h"
#include "model/records.h"

namespace kestralum {

inline constexpr const char* program_version = "ver3.01";

enum class AnalysisType : std::int32_t {
    eigen = 0,
    linear_static = 1,
    nonlinear_static = 2,
    explicit_dynamics = 3
};

// Its frames are states one after the other, each reached from the one before, with finite rotations.
constexpr bool has_steps(AnalysisType type) {
    return type >= AnalysisType::nonlinear_static;
}

// The mesh of the whole model. Node n (0-based) owns degrees of freedom 3n, 3n+1, 3n+2.
struct Mesh {
    std::vector<double> coordinates;  // node_num × 3: x y z, m
    ElementKind element_type = ElementKind::hexahedron;
    std::vector<std::int32_t> connectivity;   // element_num × nodes per element, 1-based node numbers
    std::vector<std::int32_t> p_ele_part_id;  // element_num: index of the element's part
    std::vector<double> node_n_dir;           // node_num × 3: unit outward normal at surface nodes, 0 inside
    // Facets of STL parts: drawn and exported, no solid elements and not in `connectivity`.
    std::vector<std::int32_t> surface_facets;   // facets × 3, 1-based node numbers
    std::vector<std::int32_t> surface_part_id;  // facets: index of the facet's part
    std::array<double, 6> size_info{};          // xmin ymin zmin xmax ymax zmax of all nodes, m
    double max_length = 1.0;                    // largest edge of that box, m
    std::int32_t dof_num = 0;                   // 3 × node_num once a mesh has been read; 0 at start

    std::int32_t node_num() const { return static_cast<std::int32_t>(coordinates.size() / 3); }
    int node_per_element() const { return nodes_per_element(element_type); }
    std::int32_t element_num() const {
        return static_cast<std::int32_t>(connectivity.size() / static_cast<std::size_t>(node_per_element()));
    }
};

// What an analysis leaves for the view and the result file. All five vectors are resized together
// by resize().
struct Results {
    std::vector<double> n_freq;              // mode_num: Hz (eigen), 0 (static), load factor, time
    std::vector<std::int32_t> frame_vector;  // mode_num: row of mode_vec that frame k+1 shows
    std::vector<double> mode_vec;            // mode_num × dof_num: row per vector
    // 5 groups per mode, each dof_num long: value c·dof_num + 3·node + k, c = 5·mode + group.
    // 0 = σxx σyy σzz, 1 = σxy σyz σzx (Pa), 2 = εxx εyy εzz, 3 = γxy γyz γzx,
    // 4 = Mises (Pa), equivalent plastic strain, largest principal stress (Pa).
    std::vector<double> node_stress;

    std::int32_t mode_num() const { return static_cast<std::int32_t>(n_freq.size()); }
    // Sizes every vector for `mode_num` frames of `dof_num` values, all 0, frame k showing row k.
    void resize(std::int32_t mode_num, std::int32_t dof_num);
    // Drops what is behind the first `frames` frames.
    void keep(std::int32_t frames, std::int32_t dof_num);
};
inline constexpr int stress_groups = 5;

// Settings of the explicit analysis, from the control file beside the model; 0 until one is read.
struct AnalysisControl {
    double d_time = 0;                  // time step, s
    double end_time = 0;                // s
    std::int32_t output_frequency = 0;  // steps between outputs
    double c_alfa = 0;                  // damping as a fraction of the critical one, per degree of freedom
    std::int32_t gravity_axis = -1;     // 0 x, 1 y, 2 z, -1 off
    std::int32_t gravity_sign = 1;      // +1 or -1
    bool plastic = false;
    bool element_contact = false;
};

struct ModelStore {
    std::string ver_name = program_version;
    std::string model_file_name = "data\\buckle_pipe_plastic2_v207.txt";
    bool model_file_known = true;    // false: the reader asks for the name on the console
    bool result_file_known = false;  // false: the result reader asks for the name
    std::string result_file_name;    // of the result file to read, when known

    // definition, in the order of the files
    std::vector<Material> materials;
    std::vector<Parameter> parameters;
    std::vector<Part> parts;    // PART: working parts
    std::vector<Part> parts_o;  // PART_O: parts as read
    std::vector<BoundaryCondition> boundary_conditions;
    std::vector<AppliedForce> forces;
    std::vector<RigidElement> rigid_elements;
    std::vector<RigidForce> rigid_forces;
    std::vector<RigidCombine> rigid_combines;
    std::int32_t mode_count = 1;       // mode_num / step_num of the model file: what an analysis starts from
    std::int32_t iteration_limit = 0;  // "iteration" of the model file
    AnalysisControl control;
    ExplicitTables explicit_tables;  // from the control file

    Mesh mesh;
    Results results;
    AnalysisType ana_type = AnalysisType::eigen;
    std::int32_t fn_free = 0;   // free degrees of freedom of the analysis under way
    std::int32_t diag_num = 0;  // band measure of the numbering in force

    // kept with the store, read by nobody yet
    std::int32_t store_limit = 500;
    std::array<double, 3> accumulators{};
};

// The process-wide store. Named only by app/, the readers' and writers' entry points and the
// drivers' top functions; everything else receives the tables it needs.
ModelStore& model_store();

// The placeholder model: one node at the origin, no elements, material STEEL, parameter mm.
ModelStore placeholder_model();

// Start-up: creates `log`, prints the banner and puts the placeholder model into the store.
void init_model_defaults();

// Bounding box and largest edge of the nodes; max_length 1 where the nodes span nothing.
void update_extent(Mesh& mesh);

// Fills AppliedForce::node of every node force: the first node, in node order, whose x, y and z
// each differ from the point by less than 1e-7; 0 where there is none and for area forces.
void resolve_force_points(const Mesh& mesh, std::vector<AppliedForce>& forces);

// Unit outward normals averaged over the free faces at each node, weighted by area; 0 inside.
void update_node_normals(Mesh& mesh);

}  // namespace kestralum
