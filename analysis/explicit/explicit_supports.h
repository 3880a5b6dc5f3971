// What supports with options and ties make of the nodes' motion in an explicit run.
//
// Most nodes take their velocities from the common sweep. Those here do not:
//   moved   a place along x, y or z whose displacement a support prescribes: v_{n+½} = (u(t_{n+1}) -
//   u(t_n))/Δt turned  a node with axes of its own: forces and velocity along them, then back tied    a node
//   without equations: it follows its masters, its mass and its forces are theirs
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "elements/explicit_blocks.h"
#include "system/freedoms.h"

namespace kestralum {

// The arrays of a run that constraints look at and change; node × 4, as in ExplicitState.
struct NodeArrays {
    double *u, *du, *x;
    const double *X, *v, *F, *F_contact, *mass;
    double *v_new, *R;
};

// Work or power before and after t_n.
using Halves = std::array<double, 2>;

class ExplicitSupports {
public:
    // Borrows all. stiffness, lumped: of the places of q, N/m and kg (the lumped mass with that of tied nodes
    // at their masters). damping: C_alfa.
    ExplicitSupports(const Job& job, const NodeConstraints& constraints, std::span<const double> stiffness,
                     std::span<const double> lumped, double damping);

    // Nodes that the sweep of all nodes is not to move, and places that it holds at 0 otherwise.
    bool is_turned(std::int32_t n) const { return turned_of_.empty() ? false : turned_of_[n] >= 0; }
    bool is_tied(std::int32_t n) const { return !is_tied_.empty() && is_tied_[n]; }
    bool has_special_nodes() const { return !special_.empty(); }
    std::span<const std::int32_t> special_nodes() const { return special_; }

    // Places (4 node + direction) that follow a prescribed displacement.
    std::vector<std::size_t> moved_places() const;
    // A velocity input rules the place (4 node + direction): no support moves it any more.
    void release(std::int32_t place);

    // Leaves the nodes that have a place, and gives them that; in sums the first `owned` places count. The
    // masters of a tied node have places where it has one.
    void keep(std::span<const std::int32_t> place_of, std::int64_t owned);

    // Before the first step: Δt, and where the supports stand at time 0, into u, du and x. The records that
    // do not stand at 0.
    std::vector<std::string> start(double d_time, const NodeArrays& arrays);
    // The step to come and the time over which velocities change, s; mass: node × 4.
    void set_step(double step, double mean, const double* mass);
    // Takes from given velocities what the supports do not let; places that they move are at rest.
    void project(double* v) const;

    // Forces of tied nodes go to their masters, into R, of which this process may have a part; what acts on
    // them from outside goes from where they count.
    void gather(const NodeArrays& arrays) const;
    // When R is whole: nothing is left at tied nodes.
    void settle(const NodeArrays& arrays) const;
    // Velocities at t_n + Δt/2 and what prescribes them; false where a displacement has no value. Adds power
    // of the supports (W) and of the damping (W), before and after t_n.
    bool advance(double next_time, const NodeArrays& arrays, Halves& driving, Halves& damping);
    // Tied nodes take the velocities of their masters; after those of all others are known.
    void follow(double* v_new) const;
    // t_{n+1} has come: moved places stand where they are to be, tied nodes where their masters lead them.
    void arrive(const NodeArrays& arrays) const;

    // Force on moved and turned places, N: what holds them, inertia included.
    Vec3 reaction(const NodeArrays& arrays, double mean) const;
    const std::string& trouble() const { return trouble_; }

    // What changes from step to step.
    template <typename Archive>
    void serialize(Archive& archive) {
        for (Moved& moved : moved_) archive(moved.motion);
        for (Motion& motion : motions_) archive(motion);
    }

private:
    struct Motion {
        std::size_t held;  // index into constraints.held
        double now = 0, next = 0, velocity = 0;
        template <typename Archive>
        void serialize(Archive& archive) {
            archive(now, next, velocity);
        }
    };
    struct Moved {
        std::size_t place;  // 4 node + direction
        Motion motion;
    };
    struct Turned {
        std::int32_t node;
        Mat3 axes;
        std::array<double, 3> damping{};
        std::array<double, 3> a{}, b{};  // factors of the velocity update; 0: held
        std::array<bool, 3> held{};
        std::array<std::int32_t, 3> motion{-1, -1, -1};  // of held places: index into motions_, -1: at 0
    };
    struct Tied {
        std::int32_t node;
        ConstraintMap::Weights masters;
    };
    double displacement(const Motion& motion, double time) const;
    bool find_next(Motion& motion, double time);

    const Job& job_;
    const NodeConstraints& constraints_;
    const Mesh& mesh_;                   // whose nodes the constraints name
    std::vector<std::int32_t> special_;  // turned and tied nodes, ascending
    std::vector<Tied> tied_;
    std::vector<char> is_tied_;  // per node; empty: none is special
    std::vector<Moved> moved_;
    std::vector<Turned> turned_;
    std::vector<Motion> motions_;  // of turned nodes
    std::vector<std::int32_t> turned_of_;
    double step_ = 0, mean_ = 0;
    std::size_t counted_ = std::numeric_limits<std::size_t>::max();  // places before it count in sums
    std::string trouble_;
};

// The springs of supports as blocks of stiffness on faces' nodes; their forces are among the internal ones.
class SpringSet {
public:
    // Not empty: why a spring cannot be.
    std::string collect(const Job& job, const NodeElements& node_elements);

    bool empty() const { return first_node_.empty(); }
    // Per block its nodes.
    std::size_t blocks() const { return first_node_.size(); }
    std::span<const std::int32_t> nodes(std::size_t block) const;
    // Leaves the blocks whose first node counts: has a place below `owned`. All nodes of such a block have
    // places, which they take.
    void keep(std::span<const std::int32_t> place_of, std::int64_t owned);
    // + K u at the nodes, node × 4, N.
    void add_forces(const double* u, double* R) const;
    double energy(const double* u) const;  // J
    Vec3 force(const double* u) const;     // on the body, N
    // The blocks' diagonals, 3 per node, added, N/m.
    void add_diagonal(std::span<double> stiffness) const;
    // A bound of the largest ω² of the springs on the masses (3 per node, kg), 1/s²: the largest row sum of
    // M^-½ |K| M^-½ (Gershgorin). Nodes without mass hang on others, which `mass` must have been given for.
    double rate(std::span<const double> mass) const;

private:
    template <typename Visit>
    void each(Visit visit) const;  // visit(row, column, value), 3 per node

    std::vector<std::int32_t> nodes_;
    std::vector<double> values_;
    std::vector<std::size_t> first_node_, first_value_;  // of each block
};

}  // namespace kestralum
