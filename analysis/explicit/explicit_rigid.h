// Rigid bodies of the explicit analysis: their members' forces gathered, momenta advanced, members placed.
//
// A body moves about its mass centre, or about the member that a support holds. Linear momentum p and the
// spatial angular momentum L about that point live at half steps and advance by force and moment; the
// rotation by the exponential map at the angular velocity of the middle of the step, I(R_{n+½}) ω = L with
// R_{n+½} = exp(½ Δt ω) R_n. Without forces p and L are constant to the last digit, and the energy's error is
// of second order in the step (Simo and Wong, Int. J. Numer. Meth. Engng 31, 1991).
#pragma once

#include <array>
#include <functional>
#include <limits>
#include <span>
#include <string>
#include <vector>

#include "conditions/rigid_combines.h"
#include "model/explicit_records.h"
#include "model/progress.h"

namespace kestralum {

struct ExplicitBody {
    RigidBody geometry;           // its pivot is the mass centre where no support holds it
    RigidState state;             // at t_n
    RigidState next;              // at t_{n+1}
    double mass = 0;              // kg, lumped
    Mat3 inertia{};               // about the pivot, at rest, kg·m^2
    Mat3 turnable{}, mobility{};  // at rest: onto the rotations that the body has; ω by L there, 1/(kg·m^2)
    Vec3 centre{};                // mass centre from the pivot, at rest, m; 0 where the body is not held
    Vec3 p{}, L{};                // momentum and spatial angular momentum about the pivot, at t_{n-½}
    Vec3 p_new{}, L_new{};        // at t_{n+½}
    Vec3 omega{}, omega_new{};    // angular velocity at the half steps, rad/s
    bool moves = true;            // its mass centre is free, or free across a direction
    Mat3 movable{1, 0, 0, 0, 1, 0, 0, 0, 1};  // onto the velocities of the mass centre
    bool moves_freely = true;                 // movable is 1
    Vec6 held{};  // force and moment about the pivot that the body's supports bring beside those on members,
                  // at t_n
    bool turns_freely = true;  // about every axis: turnable is 1
};

// A prescribed velocity of members: rows of one body.
struct DrivenMembers {
    std::int32_t body;
    std::vector<std::int32_t> nodes;  // 0-based
    std::int32_t axis;
    double velocity = 0;     // at the middle of the step, m/s
    TimeExpression given{};  // where it comes from
    std::string record{};    // its name
};

// The members' nodal arrays, node × 4 as in ExplicitState.
struct MemberArrays {
    const double* u;      // at t_n, m
    const double* force;  // what acts on the nodes: loads and contacts less internal forces, N
    double* v_new;        // m/s: filled so that u + Δt v_new is the body's next place
};

// The step to t_{n+1} and the time over which velocities change, s.
struct StepLengths {
    double step, mean;
};

class ExplicitBodies {
public:
    // lumped: kg per degree of freedom.
    ExplicitBodies(const RigidSystem& system, const Mesh& mesh, std::span<const double> lumped,
                   std::span<const RigidForce> forces, std::span<const RigidCombine> combines);

    // Leaves the members that have a place, and gives them that: nodes of `mesh` then. Those with a place
    // below `owned` count in sums, which `sum` makes those of all processes. Every process leads all bodies.
    using Sum = std::function<void(std::span<double>)>;
    void keep(std::span<const std::int32_t> place_of, std::int64_t owned, const Mesh& mesh, Sum sum);

    bool is_member(std::int32_t node) const { return system_.body_of_node[node] >= 0; }
    const RigidSystem& system() const { return system_; }
    std::span<const ExplicitBody> bodies() const { return bodies_; }

    // The rigid forces' factors at a time; false where one is not a finite number, then told by trouble().
    bool set_time(double time);
    const std::string& trouble() const { return trouble_; }

    // Velocities before the start from prescribed ones of members: the rigid motion that fits them best, of
    // least size.
    void start(std::span<const DrivenMembers> given, double d_time);

    // Momenta and places of t_{n+½} and t_{n+1}; fills v_new of the members. driven: what rules over the
    // equations, nodes of the whole run's steps. Collective with others. Power of the forces that drive,
    // before and after t_n, is added to `driving`, that of the rigid forces to `loads`.
    void advance(const MemberArrays& arrays, std::span<const DrivenMembers> driven, const StepLengths& dt,
                 std::array<double, 2>& driving, std::array<double, 2>& loads);

    // t_{n+1} has come: the states move on. Exact displacements of the members into u (node × 4), x = X + u.
    void arrive(std::span<double> u, std::span<double> du, std::span<double> x, std::span<const double> X);

    // At t_n, after advance(): of all bodies, held ones included. The members' nodal sums leave them out.
    double kinetic() const;
    double spring_energy() const;
    Vec3 momentum() const;
    Vec3 angular_momentum() const;
    // Force on the supports that hold members: what acts on the held bodies.
    Vec3 reaction() const { return reaction_; }

    // What changes from step to step.
    template <typename Archive>
    void serialize(Archive& archive) {
        for (ExplicitBody& b : bodies_)
            archive(b.state.u, b.state.R, b.next.u, b.next.R, b.p, b.L, b.p_new, b.L_new, b.omega,
                    b.omega_new, b.held);
        for (RigidForce& force : forces_) archive(force.value);
        for (CombineTurn& turn : turns_) archive(turn.rotation, turn.counted, turn.axis, turn.twist);
        archive(reaction_);
    }

    // Power of the dashpots between the bodies at t_n with the velocities before and after, taken from them,
    // W.
    const std::array<double, 2>& dashpot_power() const { return dashpot_power_; }

    // Largest ω² of the springs between the bodies, 1/s², and largest rate c/m of the dashpots, 1/s: for the
    // stable step.
    double spring_rate() const { return largest_rate(combines_); }
    double dashpot_rate() const;

    // The lines of the set-up ("fn=%d (fn_rigid=%d)" …) and of a step ("Vr:…").
    void print_masses(std::int32_t free_equations, Progress& progress) const;
    void print_velocities(Progress& progress) const;

private:
    std::span<const RigidState> states() const;  // until the next call
    // Bound of the largest eigenvalue of M⁻¹ K of the records' springs.
    double largest_rate(std::span<const RigidCombine> records) const;
    void turn(ExplicitBody& body, double d_time) const;
    // Force and moment of all but the springs and dashpots, less those.
    struct Push {
        Vec6 own;    // of the rigid forces
        Vec3 force;  // of everything
        Vec3 p, L;   // momenta that it leads to, before what drives
    };
    void push(std::size_t b, const MemberArrays& arrays, std::span<const DrivenMembers> driven,
              const StepLengths& dt);
    // Force and moment about the pivot of what acts on the members, added in the members' order.
    void add_nodal(std::size_t b, const double* force, Vec3& f, Vec3& m) const;
    void sum_nodal(const double* force);
    bool find_dashpots(int round);
    void book(std::size_t b, const StepLengths& dt, std::array<double, 2>& driving,
              std::array<double, 2>& loads);
    void drive(ExplicitBody& body, std::span<const DrivenMembers> driven, double d_time, std::size_t b);

    RigidSystem system_;
    const Mesh& mesh_;      // of the whole run's steps
    const Mesh* own_mesh_;  // of the members
    std::int64_t owned_ = std::numeric_limits<std::int64_t>::max();
    Sum sum_;                    // with others
    std::vector<double> nodal_;  // with others: force and moment per body
    std::vector<ExplicitBody> bodies_;
    std::vector<RigidForce> forces_;    // with their values of the time set last
    std::vector<double> whole_forces_;  // their values at factor 1
    bool forces_vary_ = false;
    std::vector<RigidCombine> combines_;
    std::vector<CombineTurn> turns_;  // one per combine
    Vec3 reaction_{};
    std::string trouble_;
    mutable std::vector<RigidState> states_;                      // room of states()
    std::vector<Vec6> resist_;                                    // of the springs and dashpots, per body
    bool damped_ = false;                                         // some combine has dashpots
    std::vector<Vec6> springs_, dashpots_, velocities_, former_;  // per body, where some has
    std::vector<Push> pushes_;                                    // per body
    std::array<double, 2> dashpot_power_{};
};

}  // namespace kestralum
