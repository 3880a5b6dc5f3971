#include "analysis/newton.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "analysis/linear_system.h"
#include "model/console.h"

namespace kestralum {

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

double norm(std::span<const double> v) {
    double sum = 0;
    for (double x : v) sum += x * x;
    return std::sqrt(sum);
}

enum Timed { assembling, factoring, solving, stressing, gathering };

}  // namespace

NewtonSolver::NewtonSolver(FiniteBody& body, const NodeElements& node_elements, const DofNumbering& numbering,
                           std::span<const double> load, const NewtonOptions& options, const Settings& settings)
    : body_(body), node_elements_(node_elements), numbering_(numbering), load_(load.begin(), load.end()), options_(options),
      settings_(settings) {}

bool NewtonSolver::prepare(RunReport& report) {
    const std::size_t equations = numbering_.free_dofs.size();
    if (equations == 0) {
        report.fail(RunStatus::failed, "every degree of freedom is fixed: nothing to solve");
        return false;
    }
    neighbours_ = neighbours_of_nodes(body_.mesh, node_elements_);
    count_overlap(neighbours_, full_);
    build_index(neighbours_, full_);
    find_diagonals(full_);
    // the entries that stay: every entry's own number goes through the elimination (exact below 2^53)
    reduced_ = full_;
    reduced_.K_value.resize(static_cast<std::size_t>(full_.entries()));
    reduced_.M_value.assign(static_cast<std::size_t>(full_.entries()), 0.0);
    for (std::size_t k = 0; k < reduced_.K_value.size(); ++k) reduced_.K_value[k] = static_cast<double>(k);
    eliminate_fixed(numbering_.dof_map, reduced_);
    reduced_.M_value = {};
    kept_.resize(reduced_.K_value.size());
    for (std::size_t k = 0; k < kept_.size(); ++k) kept_[k] = static_cast<std::int64_t>(reduced_.K_value[k]);
    Q_.assign(equations, 0.0);
    if (!assemble()) {
        report.fail(RunStatus::failed, error);
        return false;
    }
    factor_ = plan_factor(reduced_, options_.diag_num, settings_, report);
    return factor_ != nullptr;
}

bool NewtonSolver::assemble() {
    const auto start = Clock::now();
    const int nodes = body_.mesh.node_per_element();
    const std::int32_t bad = assemble_km(body_.mesh, neighbours_, [&](std::int32_t e, double* ke, double* me) {
        std::fill(me, me + nodes * nodes, 0.0);
        return finite_stiffness(body_, e, ke);
    }, body_.threads, full_, "k=");
    console::print("Calculate K sparse Complete\n");
    if (bad >= 0) {
        const auto c = element_centre(body_.mesh, bad);
        error = console::format("element %d at (%.6g, %.6g, %.6g) is flat or inverted", bad + 1, c[0], c[1], c[2]);
        return false;
    }
    for (std::size_t k = 0; k < kept_.size(); ++k) reduced_.K_value[k] = full_.K_value[static_cast<std::size_t>(kept_[k])];
    seconds[assembling] += since(start);
    console::print("Kmat Time:  %lf[s]\n", since(start));
    return true;
}

bool NewtonSolver::evaluate() {
    const auto start = Clock::now();
    const std::int32_t bad = update_stresses(body_);
    seconds[stressing] += since(start);
    if (bad >= 0) {
        const auto c = element_centre(body_.mesh, bad);
        error = console::format("element %d at (%.6g, %.6g, %.6g) is inverted or its stress is not finite", bad + 1, c[0], c[1], c[2]);
        return false;
    }
    const auto gather = Clock::now();
    const std::vector<double> all = internal_forces(body_, node_elements_);
    for (std::size_t k = 0; k < Q_.size(); ++k) Q_[k] = all[static_cast<std::size_t>(numbering_.free_dofs[k])];
    gather_seconds_ = since(gather);
    seconds[gathering] += gather_seconds_;
    return true;
}

bool NewtonSolver::place(const std::vector<double>& u0, const std::vector<double>& du, double s) {
    body_.u = u0;
    for (std::size_t k = 0; k < du.size(); ++k) body_.u[static_cast<std::size_t>(numbering_.free_dofs[k])] += s * du[k];
    return evaluate();
}

double NewtonSolver::energy(const std::vector<double>& du) const {
    double sum = 0;
    for (std::size_t k = 0; k < du.size(); ++k) sum += du[k] * (F_[k] - Q_[k]);
    return sum;
}

// The step s in (0, 1] at which the energy du·(F - Q) has fallen to half of its start or changed its sign
// by no more (Crisfield, Non-linear Finite Element Analysis, vol. 1, 1991, 9.2): halves a step that inverts an
// element, interpolates linearly between signs.
bool NewtonSolver::search_along(const std::vector<double>& u0, const std::vector<double>& du) {
    constexpr int most_trials = 10;
    const double g0 = energy(du);
    double s = 1, below = 0, g_below = g0;
    for (int trial = 0; trial < most_trials; ++trial) {
        if (!place(u0, du, s)) {
            s = 0.5 * (below + s);
            continue;
        }
        const double g = energy(du);
        if (std::abs(g) <= 0.5 * std::abs(g0) || (s == 1 && g * g0 > 0)) return true;
        if (g * g0 > 0) {
            below = s;
            g_below = g;
            s = std::min(1.0, 1.5 * s);
        } else {
            s = below + std::clamp(g_below / (g_below - g), 0.1, 0.9) * (s - below);
        }
    }
    return place(u0, du, s);
}

bool NewtonSolver::factor_and_solve(std::vector<double>& du, IncrementReport& report) {
    console::print("Static Analysis Start\n");
    console::print("[L] division:%d\n", factor_->divisions().count());
    console::print("[L]memory size=%10.1f[MB]\n", factor_->profile().megabytes());
    RunReport run;
    auto start = Clock::now();
    if (!run_factorization(reduced_, reduced_.K_value, *factor_, run)) {
        error = run.remarks.errors.back();
        return false;
    }
    seconds[factoring] += since(start);
    report.negative_pivots = factor_->negative_pivots();
    start = Clock::now();
    for (std::size_t k = 0; k < du.size(); ++k) du[k] = F_[k] - Q_[k];
    if (!factor_->solve_ldl(du)) {
        error = "the solution cannot go on: " + factor_->error();
        return false;
    }
    seconds[solving] += since(start);
    return true;
}

// The heading of an iteration and the forces it starts from.
void NewtonSolver::print_head(int iteration) const {
    console::print("########## Iteration: %d, %d/%d ##########\n", iteration, number_, options_.increments);
}

double NewtonSolver::measure(IncrementReport& report) {
    double e = 0;
    for (std::size_t k = 0; k < Q_.size(); ++k) e += (Q_[k] - F_[k]) * (Q_[k] - F_[k]);
    const double Q = norm(Q_), F = norm(F_), E = std::sqrt(e);
    largest_load_ = std::max(largest_load_, F);
    const double against = F > 0 ? F : largest_load_;
    report.ratio = against > 0 ? E / against : E;
    report.ratios.push_back(report.ratio);
    console::print("Q:%e, F:%e, E:%e, E/F:%e\n", Q, F, E, report.ratio);
    return report.ratio;
}

NewtonOutcome NewtonSolver::attempt(bool search, IncrementReport& report) {
    report.ratios.clear();
    std::vector<double> du(Q_.size());
    for (int iteration = 0;; ++iteration) {
        print_head(iteration);
        if (!assemble()) return NewtonOutcome::diverged;
        console::print("Force Vector\n");
        for (std::size_t k = 0; console::lines_enabled() && k < F_.size(); ++k)
            if (load_[k] != 0) console::print("[%zu]:%e, %e\n", k, F_[k], load_[k]);
        console::print("Force Vector Complete\n");
        console::print("K_F_Rigid Time:  %lf[s]\n", 0.0);
        console::print("cal_QF Time:  %lf[s]\n", gather_seconds_);
        console::print("Q Rigid Transformaion\n");
        console::print("fn_no_rigid=%zu, fn_rigid=%d\n", Q_.size(), 0);
        console::print("Q_Rigid Time:  %lf[s]\n", 0.0);
        if (!factor_and_solve(du, report)) return NewtonOutcome::failed;
        const auto start = Clock::now();
        const std::vector<double> u0 = body_.u;
        const bool sound = search ? search_along(u0, du) : place(u0, du, 1);
        console::print("cal_stress Time:  %lf[s]\n", since(start));
        report.iterations = iteration + 1;
        if (!sound) return NewtonOutcome::diverged;
        if (measure(report) < options_.tolerance) return NewtonOutcome::converged;
        if (!std::isfinite(report.ratio)) {
            error = "the displacements are not finite numbers";
            return NewtonOutcome::diverged;
        }
        if (iteration == options_.limit - 1) return NewtonOutcome::unconverged;
        if (console::cancel_requested()) {
            error = "stopped by the user";
            return NewtonOutcome::failed;
        }
    }
}

IncrementReport NewtonSolver::advance(std::int32_t number, double factor) {
    number_ = number;
    F_ = load_;
    for (double& f : F_) f *= factor;
    console::print("########## Force Iteration: %d ##########\n", number);
    const std::vector<double> u_start = body_.u;
    IncrementReport report;
    report.factor = factor;
    outcome = attempt(false, report);
    if (outcome == NewtonOutcome::unconverged || outcome == NewtonOutcome::diverged) {
        const std::vector<double> u_first = body_.u;
        IncrementReport second;
        second.factor = factor;
        second.searched = true;
        place(u_start, {}, 0);
        const NewtonOutcome again = attempt(true, second);
        if (again != NewtonOutcome::diverged || outcome == NewtonOutcome::diverged) {
            outcome = again;
            report = std::move(second);
        } else {
            place(u_first, {}, 0);  // the first attempt's last iterate stands
        }
    }
    report.converged = outcome == NewtonOutcome::converged;
    if (report.converged) body_.committed = body_.current;
    if (outcome == NewtonOutcome::diverged || outcome == NewtonOutcome::failed) {
        const std::string why = error;
        place(u_start, {}, 0);
        error = why;
    }
    return report;
}

}  // namespace kestralum
