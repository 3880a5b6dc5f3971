// Rigid walls of the explicit analysis: penalty springs between walls and surface nodes, with Coulomb
// friction. A wall is a plane, cylinder or sphere that may move as prescribed.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "model/explicit_records.h"
#include "model/mesh.h"

namespace kestralum {

// What walls and contact share of the run: per node × 4, as in ExplicitState.
struct ContactArrays {
    const double* x;     // coordinates, m
    const double* v;     // velocity at the half step before, m/s
    const double* mass;  // kg
    const double* b;     // velocity gained per force, s/kg; 0 where a support or an input rules
    double* F;           // forces of walls and contact, added to, N
};

// The largest size of each force since it was last asked for, N.
class ForcePeaks {
public:
    void resize(std::size_t count) { largest_.assign(count, 0.0); }
    void note(std::size_t k, const std::array<double, 3>& force);
    double take(std::size_t k);
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(largest_);
    }

private:
    std::vector<double> largest_;
};

// Where a node came deepest behind a surface in a run.
struct DeepestPlace {
    std::size_t of = 0;             // index of the wall or pair
    double depth = 0;               // m
    std::int32_t node = -1;         // 0-based
    std::array<double, 3> place{};  // m, at that time
    double time = 0;                // s
    template <typename Archive>
    void serialize(Archive& archive) {
        archive(of, depth, node, place, time);
    }
};

// The penalty that a node's contacts may have together, as a share of m/Δt²: what the elements leave of
// the stability limit k Δt²/m + 2 c Δt/m + (ω Δt)² < 4 with c = 2 ζ √(k m), at most a half.
double penalty_share(double d_time, double stable_step, double damping);

class WallSet {
public:
    // `mesh` has the sets of walls that name one; `nodes`: surface nodes, 0-based, ascending. `sharing`:
    // contacts that a node may have at a time. `members`: per node, whether a rigid body moves it; empty:
    // none.
    WallSet(std::span<const RigidWall> walls, std::span<const Parameter> parameters, const Mesh& mesh,
            std::vector<std::int32_t> nodes, std::vector<char> members, double d_time, double stable_step,
            int sharing);

    // Nodes (0-based, ascending) that have come to lie on the surface may meet the walls too.
    void add_nodes(std::span<const std::int32_t> nodes, const Mesh& mesh);

    // Leaves the nodes that have a place, and gives them that; in sums the first `owned` places count.
    void keep(std::span<const std::int32_t> place_of, std::int64_t owned);

    // The step to come, s: walls move by it. Chosen penalties stay those of the first one.
    void set_step(double step) { step_ = step; }

    // Normal forces of the configuration at `time`, and friction on members of rigid bodies, added to
    // arrays.F. False when a wall's displacement has no value, which trouble() tells.
    bool push(const ContactArrays& arrays, double time);
    const std::string& trouble() const { return trouble_; }
    // Friction on the other nodes: changes the new velocities of those that touch by at most what μ times the
    // normal force allows and adds the forces that do so to arrays.F.
    void rub(const ContactArrays& arrays, double* v_new);
    // Work of the forces in force with the velocities before and after, W.
    std::array<double, 2> power(const double* v, const double* v_new) const;

    // Force of each wall on the bodies, N.
    std::array<double, 3> force(std::size_t wall) const;
    std::size_t size() const { return walls_.size(); }
    std::int64_t touching() const;

    // What changes from step to step.
    template <typename Archive>
    void serialize(Archive& archive) {
        for (Placed& placed : walls_) archive(placed.now, placed.next, placed.touches, placed.sticking);
        archive(peaks, deepest_);
    }

    ForcePeaks peaks;
    // What friction dissipates, W: its force on the slip before and after, as power().
    std::array<double, 2> friction_power(const double* v, const double* v_new) const;
    bool rubs() const;
    const DeepestPlace& deepest() const { return deepest_; }

    // The least m/k of springs that are stiffer than chosen ones, s²; 0 when there is none. For the
    // stable step 2/√(ω² + k/m).
    double stiff_spring(std::span<const double> mass) const;

private:
    struct Touch {
        std::int32_t node;
        std::array<double, 3> normal, force;  // force: with friction
        double press;                         // normal force, N
        template <typename Archive>
        void serialize(Archive& archive) {
            archive(node, normal, force, press);
        }
    };
    // Where a member sticks, in the frame that moves with the wall, m.
    struct Sticking {
        std::array<double, 3> place{};
        bool closed = false;
        template <typename Archive>
        void serialize(Archive& archive) {
            archive(place, closed);
        }
    };
    struct Placed {
        RigidWall wall;
        std::array<double, 3> centre, now{}, next{};  // displacements at this time and a step later, m
        double share;                                 // of m/Δt² for a chosen penalty
        std::vector<std::int32_t> own_nodes;          // of a wall with a set: its surface nodes
        std::vector<Touch> touches;
        std::vector<Sticking> sticking;  // per node that may meet the wall; empty: no member does
    };
    void stick(Placed& wall, Sticking& sticking, Touch& touch, double k, const ContactArrays& arrays) const;
    const std::vector<std::int32_t>& nodes_of(const Placed& wall) const {
        return wall.wall.set_name.empty() ? nodes_ : wall.own_nodes;
    }
    bool reach(const Placed& wall, const double* x, std::array<double, 3>& normal, double& depth) const;

    std::vector<Placed> walls_;
    std::vector<Parameter> parameters_;
    std::vector<std::int32_t> nodes_;
    std::vector<char> members_;
    DeepestPlace deepest_;
    std::string trouble_;
    double d_time_, step_;                                           // the first step and that to come, s
    std::int32_t owned_ = std::numeric_limits<std::int32_t>::max();  // nodes before it count
};

}  // namespace kestralum
