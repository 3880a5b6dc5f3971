// What a run has to report when it ends: its status, remarks and, stage by stage, time and memory.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "model/remarks.h"

namespace kestralum {

enum class RunStatus {
    done,
    bad_input,    // the model cannot be analysed as it is; nothing was computed
    disk_budget,  // the factor is larger than FREE_HD_SIZE: "Warning:HD" was printed, the process ends
    failed,       // begun, not completed
    cancelled,    // begun, ended on request
};

struct Stage {
    std::string name;
    double seconds = 0;
    double peak_megabytes = 0;  // largest resident memory while the stage ran
};

struct NodeValue {
    std::int32_t node = 0;  // 1-based, 0 = none
    double value = 0;
    std::array<double, 3> place{};
};

struct ModeReport {
    double lambda = 0;     // rad²/s²
    double frequency = 0;  // Hz
    double residual = 0;   // ‖Kφ - λMφ‖ / ‖(K + λ₁M)φ‖, λ₁ the first elastic one
    bool zero = false;     // |λ| < 1e-6 λ₁
    std::array<double, 3> effective_mass{};  // kg per direction
};

// Of an explicit run: energies and momenta of the last output.
struct ExplicitEnergies {                                        // J
    double kinetic = 0, internal = 0, plastic = 0, damping = 0;  // plastic is a part of internal
    double wall = 0, contact = 0, external = 0, support = 0;     // work done on the bodies
    double viscous = 0, eroded = 0;  // dissipated by bulk viscosity; gone with elements that eroded
    double total() const {
        return kinetic + internal + damping + viscous + eroded - wall - contact - external - support;
    }
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(kinetic, internal, plastic, damping, wall, contact, external, support);
    }
};

// Where a node came deepest behind a surface in an explicit run.
struct Penetration {
    std::string name;               // of what it met
    double depth = 0;               // m
    std::int32_t node = 0;          // number in the run
    std::array<double, 3> place{};  // of the node at that time, m
    double time = 0;                // s
};

struct ExplicitReport {
    std::int64_t steps = 0, time_num = 0, frames = 0, elements = 0;
    double d_time = 0, stable_step = 0, time = 0;  // s
    double loop_seconds = 0;
    const char* kernel = "";  // instruction set of the internal forces
    ExplicitEnergies energies;
    double drift = 0;  // largest error of the balance over the largest energy
    std::array<double, 3> momentum{}, angular_momentum{};  // kg·m/s, kg·m²/s
    Penetration deepest_wall, deepest_contact;             // without a node: none
    std::optional<double> friction;                        // J, a part of the work of walls and contact
    bool viscous = false;                                  // with bulk viscosity
    bool erodes = false;                                   // some material has a limit of plastic strain
    std::int64_t eroded_elements = 0;
    double eroded_mass_share = 0;  // of the mass at rest
    bool displacements_written = false, history_written = false;
    bool vtu_written = false, vtu_failed = false;  // the files for ParaView of every frame
};

// What one support does to the body.
struct SupportReaction {
    std::string name;
    std::array<double, 3> force{}, moment{};  // N, N m about the centre
    std::array<double, 3> centre{};           // mean of its nodes, m
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(name, force, moment, centre);
    }
};

// One load increment of a nonlinear run.
struct IncrementReport {
    double factor = 0;   // of the load
    int iterations = 0;  // of the attempt that stands
    double ratio = 0;    // |E|/|F| at its end
    bool converged = false;
    bool searched = false;             // started once more, with a line search
    std::vector<double> ratios;        // after each iteration of that attempt
    std::int64_t negative_pivots = 0;  // of its last factorization
    double largest_displacement = 0;   // m
    double plastic_share = 0;          // of the volume, 0 … 1
    double work = 0;                   // of the loads so far, J
    std::vector<SupportReaction> supports{};
};

struct NonlinearReport {
    std::vector<IncrementReport> increments;  // done, stored as frames
    std::int32_t wanted = 0;                  // increments asked for
    std::array<double, 5> seconds{};          // of all iterations: assemble, factor, solve, stresses, gather
    std::int64_t iterations = 0;              // factorizations
    bool history_written = false;
};

struct LoadFactorReport {
    double factor = 0;    // of all loads
    double residual = 0;  // ‖(K + λG)φ‖ / ‖Kφ‖
};

struct BucklingReport {
    std::vector<LoadFactorReport> factors;  // ascending, above zero
    double check_factor = 0;                // the completeness check's, 0 = no check was possible
    std::int64_t found = 0, counted = 0;    // factors in (0, check_factor)
};

// A frame of a static run: one load case or combination.
struct CaseReport {
    std::string name;  // empty where there is but one
    NodeValue largest_displacement, largest_mises;
    std::array<double, 3> applied{}, reaction{};  // N
    std::vector<SupportReaction> supports;
    double strain_energy = 0;  // ∫ ½ σ·ε_elastic dV, J
    double error = -1;         // estimated, of the stress in the energy norm, 0 … 1; negative: not known
    std::string worst_place;   // of the element with its largest share
};

struct RunReport {
    RunStatus status = RunStatus::done;
    Remarks remarks;            // errors: why the status is not `done`; notices: what the user should know
    std::vector<Stage> stages;  // in the order in which they began first

    double total_mass = 0;  // kg, fixed nodes included

    // static analysis
    NodeValue largest_displacement;               // m
    NodeValue largest_mises;                      // Pa
    std::array<double, 3> applied{}, reaction{};  // N
    std::vector<CaseReport> cases;                // of all frames; the first is the one above
    std::vector<SupportReaction> supports;        // of the (last) frame
    double residual = 0;                          // ‖Ku - F‖ / ‖F‖
    std::int64_t free_dofs = 0, factor_entries = 0, negative_pivots = 0;
    std::string solver;  // what the factor was expected to cost, and which was taken; what came of it

    // eigen analysis
    std::vector<ModeReport> modes;
    double check_frequency = 0;  // Hz: the completeness check's shift, 0 = no check was possible
    std::int64_t modes_found = 0, modes_counted = 0;  // below it
    double check_seconds = 0;
    std::int64_t factorizations = 0, solved_columns = 0, rounds = 0;

    BucklingReport buckling;
    ExplicitReport dynamics;
    NonlinearReport nonlinear;

    // of many processes: frames that the list for ParaView names, written as they were reached
    std::int32_t listed_frames = 0;
    bool kept = false;     // the run's frames are whole results: they may be shown
    bool written = false;  // the result file holds this run's results
    bool has_results() const { return kept; }

    RunReport& fail(RunStatus why, std::string text);
};

}  // namespace kestralum
