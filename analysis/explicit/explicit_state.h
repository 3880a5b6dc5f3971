// The state of an explicit analysis between its steps, its set-up and its step routine.
//
//   n        a whole step, t_n = n Δt; displacements, stresses and forces belong to it
//   v_{n-½}  the velocity that led to n
// Central differences with a lumped mass: v_{n+½} = [(m/Δt - c/2) v_{n-½} + F_n - R_n] / (m/Δt + c/2),
// u_{n+1} = u_n + Δt v_{n+½}. With kinetic energy ½ v_{n-½} m v_{n+½} and work by the trapezoidal rule
// the energy balance of a linear body is exact (Belytschko, Liu and Moran, 2000, 6.2).
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "analysis/explicit/explicit_adaptive.h"
#include "analysis/explicit/explicit_contact.h"
#include "analysis/explicit/explicit_erosion.h"
#include "analysis/explicit/explicit_loads.h"
#include "analysis/explicit/explicit_mirror.h"
#include "analysis/explicit/explicit_piece.h"
#include "analysis/explicit/explicit_rigid.h"
#include "analysis/explicit/explicit_supports.h"
#include "analysis/explicit/explicit_sweep.h"
#include "analysis/explicit/explicit_team.h"
#include "analysis/explicit/explicit_viscosity.h"
#include "analysis/explicit/explicit_walls.h"
#include "elements/explicit_blocks.h"
#include "elements/stable_step.h"
#include "system/assembly.h"

namespace kestralum {

// Work of one kind of force up to t_n, from its power before and after each t_n: half a step to each side.
struct Work {
    double total = 0;  // up to the interval under way
    double at = 0;     // up to t_n, J
    void add(double before, double after) {
        at = total + before;
        total += before + after;
    }
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(total, at);
    }
};

// Degrees of freedom whose velocity is prescribed by one record.
struct DrivenDofs {
    TimeExpression velocity;
    std::vector<std::int32_t> places;  // 4 node + direction
    std::string record;                // its name
};

struct ExplicitState {
    // steps
    double d_time = 0;                       // s; with d_time auto the first one
    double before = 0, after = 0, mean = 0;  // s: the step that led to n, that to n+1, their mean
    AdaptiveStep adaptive;                   // with d_time auto
    double time() const { return adaptive.on ? adaptive.now : static_cast<double>(step) * d_time; }
    double next_time() const { return adaptive.on ? adaptive.next : static_cast<double>(step + 1) * d_time; }
    double middle_time() const {
        return adaptive.on ? adaptive.now + 0.5 * after : (static_cast<double>(step) + 0.5) * d_time;
    }
    bool ended() const { return adaptive.on ? !(adaptive.now < adaptive.end) : step + 1 >= time_num; }
    std::int64_t time_num = 1, out_time_num = 1, output_frequency = 1;
    std::int64_t step = 0;  // last step done
    bool diverged = false;
    bool velocities_known = false;  // v_new is that of the step to come
    int threads = 1;
    int team = 1;  // threads of a step: a small body is stepped faster by one

    // node × 4, the fourth unused: start coordinates and coordinates (m), displacement and its last
    // increment (m), velocities (m/s), internal, constant and contact forces (N), mass (kg), damping
    // (N·s/m), and the factors of the velocity update
    LineDoubles X, x, u, du, v, v_new, R, F, F_contact, mass, damping, a, b;
    // mass and b as walls and contact are to see them, where nodes have axes of their own or are tied; empty:
    // as they are
    LineDoubles contact_mass, contact_b;
    std::vector<std::uint8_t> supported;  // node × 4: held at 0 by a support (or on no element), not driven
    bool damped = false;

    std::unique_ptr<StepMesh> mesh;  // whose nodes the arrays follow, but for those of a piece
    // The other processes that compute the model, and what this one has of it; null: it computes all.
    ExplicitTeam* ranks = nullptr;
    std::unique_ptr<ExplicitPiece> piece;
    std::int64_t owned = 0;  // the nodes that count here in sums: the first ones
    StepFault fault;         // of this process, with others
    bool asked_to_stop = false;
    std::vector<double>
        wall_course;               // with others: each wall's force (N) in the steps since they were summed
    std::vector<Vec3> wall_force;  // with others: at the last output, N
    double friction = 0;           // with others: friction_work of all at the last output
    std::optional<ElementBlocks> blocks;
    std::optional<BulkViscosity> viscosity;
    std::optional<Erosion> erosion;
    std::optional<WallSet> walls;
    std::optional<ContactSet> contacts;
    std::optional<ContactMirror> mirror;      // with others: what `contacts` works on
    std::vector<std::int32_t> contact_nodes;  // where F_contact can be other than 0
    std::vector<DrivenDofs> driven;
    Freedoms freedoms;
    std::optional<ExplicitSupports> supports;  // where supports have options or faces are tied
    SpringSet springs;
    std::optional<ExplicitLoads> loads;  // where some change with time
    std::optional<ExplicitHeat> heat;
    std::string trouble;  // not empty: what had no value in the last step
    std::optional<ExplicitBodies> bodies;
    // Every process leads all bodies and finds all contacts; one counts them in sums.
    bool counts_all() const { return !ranks || ranks->first(); }
    bool counts_bodies() const { return bodies && counts_all(); }
    std::vector<DrivenMembers> driven_members;  // one per record and body
    LineDoubles acting;  // node × 4: loads and contacts less internal forces, at members
    NodeSweep sweep;

    Work damping_work, wall_work, contact_work, support_work, rigid_work, load_work;
    Work friction_work;  // what it takes: a part of the work of walls and contact
    bool rubs() const { return (walls && walls->rubs()) || (contacts && contacts->rubs()); }
    double start_energy = 0, largest_energy = 0, drift = 0, largest_drift = 0;
    ExplicitEnergies energies;
    Eroded eroded;  // at the last output
    std::array<double, 3> momentum{}, angular_momentum{}, reaction{};
    std::vector<SupportReaction> reactions;  // of the supports, at the last output

    std::unique_ptr<StepBound> bound;
    double stable_step = 0;                                       // s, of elements and given springs
    double step_limit = std::numeric_limits<double>::infinity();  // s: of dashpots, whatever the elements
    double added_rate = 0, step_factor = 1;  // it is step_factor · 2/√(ω² + added_rate), ω of the elements
    bool step_warned = false;
    std::int64_t next_check = 0;  // step of the next look at the current shapes

    // output
    PointResults points;
    std::vector<double> plastic_strain;
    std::vector<std::int32_t> probes;  // 0-based nodes
    HistoryRows history;               // a row per output
    double loop_seconds = 0;
    std::chrono::steady_clock::time_point start;

    // What the steps change and the set-up cannot find again, but for the history.
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(step, velocities_known, before, after, mean, adaptive, time_num, a, b, contact_b, x, u, du, v,
                v_new, R, F, F_contact);
        archive(*blocks);
        if (viscosity) archive(*viscosity, energies.viscous);
        if (erosion) {
            archive(*erosion, energies.eroded);
            erosion->take_up(*this);
        }
        if (walls) archive(*walls);
        if (contacts) archive(*contacts);
        if (supports) archive(*supports);
        if (bodies) archive(*bodies);
        archive(damping_work, wall_work, contact_work, support_work, rigid_work, load_work, friction_work);
        archive(start_energy, largest_energy, drift, largest_drift, energies, momentum, angular_momentum,
                reaction, reactions, step_warned, next_check);
    }
};

// Everything that the run needs before its first step, with the set-up's console lines; frame 1, the start,
// is then in the run's results. False with the status set.
bool set_up_explicit(Job& job, ExplicitState& state);

// One step, s = state.step + 1. Sets state.diverged.
void explicit_step(Job& job, ExplicitState& state);

// Forces of the configuration in force at t_n: internal ones from the blocks, then walls and contact.
// False when an element is inverted or an expression has no value (then in `trouble`).
bool find_forces(ExplicitState& state);

// The arrays that supports and ties work on.
NodeArrays node_arrays(ExplicitState& state);

// before, after and mean for the step to come, and all that depends on them.
void set_step(ExplicitState& state, double before, double after);

// v_{n+½} into v_new and the works up to t_n; `trouble` is not empty where a displacement has no value.
void find_velocities(const Job& job, ExplicitState& state);

// The share of the undamped stable step that bulk viscosity leaves; 1 without it. Collective with others.
double viscous_share(const ExplicitState& state);
// With others: the largest forces of walls in the steps since the last call. Collective.
void sum_wall_course(ExplicitState& state);

// Stores the frame and the row of the history that belong to the step done last.
void store_frame(Job& job, ExplicitState& state);
void begin_history(const Job& job, ExplicitState& state);

}  // namespace kestralum
