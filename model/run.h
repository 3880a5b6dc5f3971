// A run: what an analysis computed of a model, or what a file holds of such a run. Made whole by the analysis
// or the reader and not altered afterwards.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "model/mesh.h"
#include "model/model.h"
#include "model/run_report.h"
#include "model/section.h"
#include "model/settings.h"

namespace kestralum {

enum class AnalysisType : std::int32_t {
    eigen = 0,
    linear_static = 1,
    nonlinear_static = 2,
    explicit_dynamics = 3,
    buckling = 4
};

// Its frames are states one after the other, each reached from the one before, with finite rotations.
constexpr bool has_steps(AnalysisType type) {
    return type == AnalysisType::nonlinear_static || type == AnalysisType::explicit_dynamics;
}
// Its frames are shapes of any size and sign.
constexpr bool has_shapes(AnalysisType type) {
    return type == AnalysisType::eigen || type == AnalysisType::buckling;
}

inline constexpr int stress_groups = 5;

// One mode, load step or output of a run.
struct Frame {
    double n_freq = 0;             // Hz (eigen), 0 (static), load factor (nonlinear, buckling), s (explicit)
    std::string name{};            // static: of its load case or combination; empty where there is but one
    std::vector<double> mode_vec;  // dof_num: displacements, m
    // stress_groups × dof_num: value group·dof_num + 3·node + k.
    // 0 = σxx σyy σzz, 1 = σxy σyz σzx (Pa), 2 = εxx εyy εzz, 3 = γxy γyz γzx,
    // 4 = Mises (Pa), equivalent plastic strain, largest principal stress (Pa).
    std::vector<double> node_stress;
    std::vector<std::int32_t> removed{};  // elements that the run has taken out so far, ascending, 0-based
    std::vector<double> error;  // node_num: estimated error of the stress around the node, of the model's
                                // root mean square (1 = 100 %); empty: not known
    // What supports, their springs and velocity inputs do to each node, dof_num, N; empty: nothing is held,
    // or not known. What holds a rigid body is spread over those of its nodes that are held.
    std::vector<double> reaction{};
    std::vector<double> load{};  // dof_num: nodal loads of its case, N; static runs computed here
    std::vector<float> velocity{}, acceleration{};  // dof_num, m/s and m/s^2; of explicit runs
    // Means over the points of each element, of nonlinear and explicit runs (analysis/element_values.h).
    std::vector<float> element_stress{};   // 6 per element, xx yy zz xy yz zx, Pa
    std::vector<float> element_strain{};   // 6 per element, logarithmic; of nonlinear runs
    std::vector<float> element_plastic{};  // 1 per element: equivalent plastic strain; empty: none

    explicit Frame(std::int32_t dof_num = 0)
        : mode_vec(dof_num), node_stress(std::size_t(stress_groups) * dof_num) {}
};

// The frames that were reached, in order; shared, so that a view keeps one while a run goes on.
using Results = std::vector<std::shared_ptr<const Frame>>;

// Frames whose values lie on disk.
class FrameStore {
public:
    virtual ~FrameStore() = default;
    // Values from number `first` on of mode_vec and node_stress, one behind the other, of a frame (from 0).
    // False where they cannot be read; any thread may ask.
    virtual bool read(std::size_t frame, std::int64_t first, std::span<double> to) const = 0;
    // All that a frame had in memory; null where it cannot be read.
    virtual std::shared_ptr<const Frame> whole(std::size_t frame) const = 0;
};

// What the caller chooses beside the settings file.
struct RunOptions {
    std::string log_folder = "log";             // where "log\…" names live
    std::vector<std::array<double, 3>> probes;  // nonlinear, explicit: places whose nearest nodes go into the
                                                // history, m
    bool mean_dilatation = false;               // explicit: hexahedra with one pressure per element once one
                                                // of its points has yielded
    std::optional<HexahedronForm> hexahedra;    // in place of the model's
    bool vtu_frames = false;                    // explicit: a file for ParaView as each frame is reached
    bool vtu_quantities = false;                // with the further quantities of every frame
    bool keep_frames = false;                   // explicit: the frames file stays when the run has ended
    bool frames_on_disk = false;                // explicit: only the last frame stays in memory
    double checkpoint_seconds = 0;              // explicit: between checkpoints, by the clock; 0: none
    bool restart = false;                       // explicit: goes on from the last checkpoint
    std::vector<double> factors;         // nonlinear: of the load, one per increment; empty: k/step_num
    std::string load_case;               // the case or combination that acts; empty: all loads
    std::vector<SectionPlane> sections;  // static, nonlinear, explicit: whose forces are told
    bool prestress = false;              // eigen: with the stiffness of the static state's stresses
    double subspace_tolerance = 1e-6;    // eigen: relative change of the frequencies in one round
    double lanczos_tolerance = 1e-9;     // eigen: |β s| / |θ| of the inverted operator
};

// The form of hexahedra that is in force: the caller's, else the model's. Meshes of tetrahedra have none:
// full.
HexahedronForm hexahedron_form(const Model& model, const RunOptions& options);

// What a run was made from.
struct RunOrigin {
    std::string model_file_name;
    std::string analysis;   // word of the command line; empty where a file does not tell
    std::string file_name;  // of the file the run was read from; empty for one computed here
    std::string ver_name = program_version;
    std::chrono::system_clock::time_point time{};  // of its start
    Settings settings;
    RunOptions options;
};

// Rows of numbers beside the frames, by column: a row per frame.
struct HistoryRows {
    std::vector<std::string> columns;
    std::vector<double> values;  // rows × columns
    std::size_t rows() const { return columns.empty() ? 0 : values.size() / columns.size(); }
    // Column `name` of a row; not a number where there is none.
    double value(std::size_t row, std::string_view name) const;
    void add(std::span<const double> row) { values.insert(values.end(), row.begin(), row.end()); }
};

struct Run {
    RunOrigin origin;
    AnalysisType ana_type = AnalysisType::eigen;
    std::vector<std::int32_t> node_of;     // per node of the model's mesh: its node (0-based) in this mesh;
                                           // empty where a file does not tell
    Mesh mesh;                             // renumbered
    std::vector<std::int32_t> force_node;  // per force of the model: resolve_force_points() on this mesh
    std::vector<double> load;              // dof_num: nodal loads at load factor 1, N; empty where none act
    std::vector<std::int32_t>
        held_nodes;       // static: something beside loads and elements acts on them (supports,
                          // springs, ties, rigid elements), 0-based; none where a file is read
    bool erodes = false;  // explicit: the frames tell which elements have been taken out
    Results results;
    std::shared_ptr<const FrameStore> stored;  // has the values of frames that hold their time alone; null:
                                               // all hold theirs
    HistoryRows history;  // nonlinear, explicit: what log/history_*.csv tells; none where read from a file
    std::vector<SectionSum> sections;  // of the options' planes, frame by frame
    RunReport report;

    std::int32_t mode_num() const { return static_cast<std::int32_t>(results.size()); }
};

// The first mode that deforms the body, from 1; 0 where there are no modes. A file tells frequencies alone:
// there the rigid ones are those that lie before a step to a thousandfold frequency.
std::int32_t first_elastic_mode(const Run& run);

}  // namespace kestralum
