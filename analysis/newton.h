// Load increments and the Newton iteration on Q(u) = F: the numerical half of the nonlinear static analysis.
//
// F   applied forces of the increment, one per equation, N
// Q   internal forces of the current stresses, one per equation, N
// E   F - Q; an increment has converged when |E|/|F| < tolerance
#pragma once

#include <memory>
#include <string>

#include "analysis/run_report.h"
#include "elements/constraints.h"
#include "elements/finite_elements.h"
#include "model/settings.h"
#include "solver/ldl.h"
#include "solver/sparse.h"

namespace kestralum {

enum class NewtonOutcome { converged, unconverged, diverged, failed };

struct NewtonOptions {
    double tolerance = 1e-6;
    int limit = 100;            // iterations of one attempt
    std::int32_t increments = 1;  // told in the progress lines
    std::int32_t diag_num = 0;  // band measure of the numbering
};

// The iteration of one body. Prints the progress lines.
class NewtonSolver {
public:
    // Borrows all; the body is at rest. load: F at load factor 1. print_load: called where an iteration
    // tells its forces (may be empty).
    NewtonSolver(FiniteBody& body, const NodeElements& node_elements, const DofNumbering& numbering, std::span<const double> load,
                 const NewtonOptions& options, const Settings& settings);

    // The pattern and its reduction to the equations, and K at rest. False with the error told in
    // report: a flat element, nothing free, the disk budget.
    bool prepare(RunReport& report);

    // K at rest, reduced: its diagonal weighs the shares of area forces.
    const SparseKM& stiffness() const { return reduced_; }
    void set_load(std::vector<double> load) { load_ = std::move(load); }

    // Increment `number` (from 1) up to `factor` times the load. Starts once more with a line search where the
    // first attempt does not converge. On `converged` the states are committed; on `unconverged` the body is
    // at its last iterate; on `diverged` and `failed` it is where the increment began.
    IncrementReport advance(std::int32_t number, double factor);

    std::span<const double> internal() const { return Q_; }  // one per equation
    const SkylineFactor& factor() const { return *factor_; }
    std::vector<double> seconds{0, 0, 0, 0, 0};  // assemble, factor, solve, stresses, gather; all iterations
    NewtonOutcome outcome = NewtonOutcome::converged;  // of the last increment
    std::string error;                           // why the last increment ended as `failed` or `diverged`

private:
    NewtonOutcome attempt(bool search, IncrementReport& report);
    bool assemble();
    bool factor_and_solve(std::vector<double>& du, IncrementReport& report);
    bool place(const std::vector<double>& u0, const std::vector<double>& du, double s);
    double energy(const std::vector<double>& du) const;
    bool search_along(const std::vector<double>& u0, const std::vector<double>& du);
    bool evaluate();  // stresses and Q at body.u; false where an element is inverted
    double measure(IncrementReport& report);
    void print_head(int iteration) const;

    FiniteBody& body_;
    const NodeElements& node_elements_;
    const DofNumbering& numbering_;
    std::vector<double> load_;
    NewtonOptions options_;
    const Settings& settings_;

    NodeNeighbours neighbours_;
    SparseKM full_, reduced_;
    std::vector<std::int64_t> kept_;  // per reduced entry: its place in full_
    std::unique_ptr<SkylineFactor> factor_;
    std::vector<double> F_, Q_;
    double largest_load_ = 0;  // |F| so far: E is told against it where F vanishes
    double gather_seconds_ = 0;
    std::int32_t number_ = 0;
};

}  // namespace kestralum
