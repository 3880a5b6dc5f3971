// Load increments and the Newton iteration on Q(u) = F: the numerical half of the nonlinear static analysis.
//
// F   applied forces of the increment, one per equation, N
// Q   internal forces of the current stresses and the supports' springs, one per equation, N
// E   F - Q; an increment has converged when |E|/|F| < tolerance; where supports prescribe displacements |F|
//     counts what they carry too, and heat what it has left unbalanced
#pragma once

#include <span>
#include <string>
#include <vector>

#include "analysis/nonlinear/newton_body.h"
#include "conditions/rigid_combines.h"
#include "system/load_set.h"

namespace kestralum {

enum class NewtonOutcome { converged, unconverged, diverged, failed };

struct NewtonOptions {
    double tolerance = 1e-6;
    int limit = 100;              // iterations of one attempt
    std::int32_t increments = 1;  // named in the progress lines
};

// The iteration of one body. Prints the progress lines.
class NewtonSolver {
public:
    // Borrows all; the body is at rest, its run's nodal load not known yet.
    NewtonSolver(Job& job, NewtonBody& body, const Freedoms& freedoms, const NewtonOptions& options);

    // The body's matrix, and K at rest. False with the run's status set: a flat element, nothing free, a
    // budget, a cancel.
    bool prepare();

    // Before the first increment.
    void set_loads(const LoadSet& loads);

    // Increment `number` (from 1) up to the load factor `factor`. Starts once more with a line search where
    // the first attempt does not converge. On `converged` the states are committed; on `unconverged` the body
    // is at its last iterate, or with `or_back` where the increment began; on `diverged` and `failed`, a
    // cancel among them, it is where the increment began.
    IncrementReport advance(std::int32_t number, double factor, bool or_back = false);

    // One per equation: those of nodes on no rigid body, then the bodies'.
    std::span<const double> internal() const { return Q_; }
    std::span<const RigidState> states() const { return states_; }
    std::span<const CombineTurn> turns() const { return turns_; }
    // The next increment goes on from here.
    void keep_turns() { kestralum::keep_turns(job_.model.rigid_combines, states_, turns_); }
    // What acts on the body where it is.
    const AppliedLoads& applied() const { return applied_; }
    // Work of the loads and of supports that move in the last increment, by the trapezoidal rule (J).
    double work(const std::vector<double>& u_before, std::span<const RigidState> states_before,
                double factor_before, double factor) const;
    std::vector<double> seconds{0, 0, 0, 0, 0};  // assemble, factor, solve, stresses, gather; all iterations
    NewtonOutcome outcome = NewtonOutcome::converged;  // of the last increment
    std::string error;  // why the last increment ended as `failed` or `diverged`

private:
    NewtonOutcome attempt(bool search, IncrementReport& report);
    NewtonOutcome iterate(bool search, IncrementReport& report);
    bool assemble(Progress& lines);
    bool factor_and_solve(std::vector<double>& du);
    struct Placement {
        std::vector<double> u;
        std::vector<RigidState> states;
        std::vector<double> held;
    };
    Placement placement() const { return {body_.u, states_, held_}; }
    bool place(const Placement& from, std::span<const double> du, double s);
    void set_forces(double factor);
    void set_targets(double factor);
    bool loads_are_finite() const;
    std::vector<double> left_to_move() const;
    void subtract_moved(const std::vector<double>& moved, std::vector<double>& E) const;
    double rigid_work(std::size_t b, std::span<const RigidForce> forces, const RigidState& before) const;
    void add_load_stiffness(std::span<double> K_rr) const;
    double energy(const std::vector<double>& du) const;
    bool search_along(const Placement& from, const std::vector<double>& du);
    bool evaluate();  // stresses and Q at body.u; false where an element is inverted
    void meet_heat();
    double measure(IncrementReport& report);
    bool finds_free_motion();
    void print_head(int iteration) const;
    void print_load() const;
    void print_rigid_displacements() const;

    Job& job_;
    const LoadSet* loads_ = nullptr;
    bool one_factor_ = true;  // all loads keep their direction and grow with the load factor
    AppliedLoads applied_;
    std::vector<double> gathered_;       // applied_.nodal on the places of q
    std::vector<double> held_, target_;  // per constraints.held: displacement where the body is, and to be, m
    std::vector<double> carried_, held_before_,
        carried_before_;       // the forces there, N; both when the increment began
    bool prescribed_ = false;  // some of them are not 0
    NewtonBody& body_;
    const Mesh& mesh_;
    const Freedoms& freedoms_;
    const DofNumbering& numbering_;
    const RigidSystem& rigid_;
    NewtonOptions options_;

    DofNumbering free_;  // without the members of rigid bodies
    std::vector<RigidState> states_;
    std::vector<CombineTurn> turns_;  // of the rigid combines, at the end of the last increment
    std::vector<double> F_, Q_;
    std::vector<double> nodal_Q_;  // 3 per node
    double load_factor_ = 0;
    bool free_motion_checked_ = false;
    bool at_rest_ = false;  // prepare() has left K at rest, which the first iteration takes
    double assemble_seconds_ = 0;
    double largest_load_ = 0;  // |F| so far: what E is measured against where F vanishes
    double largest_heat_ = 0;  // |F - Q| that a change of temperature has made so far
    double gather_seconds_ = 0;
    std::int32_t number_ = 0;
};

}  // namespace kestralum
