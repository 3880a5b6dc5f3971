#include "analysis/nonlinear/newton.h"

#include <algorithm>
#include <chrono>
#include <cmath>

#include "conditions/turning_stiffness.h"
#include "model/format.h"
#include "system/bordered.h"
#include "system/support_springs.h"

namespace kestralum {

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

enum Timed { assembling, factoring, solving, stressing, gathering };

}  // namespace

NewtonSolver::NewtonSolver(Job& job, NewtonBody& body, const Freedoms& freedoms, const NewtonOptions& options)
    : job_(job),
      body_(body),
      mesh_(job.mesh()),
      freedoms_(freedoms),
      numbering_(freedoms.numbering),
      rigid_(freedoms.rigid),
      options_(options),
      free_(freedoms.numbering),
      states_(freedoms.rigid.bodies.size()),
      turns_(job.model.rigid_combines.size()) {
    if (!rigid_.empty()) leave_members_out(rigid_, free_);
}

bool NewtonSolver::prepare() {
    held_.assign(freedoms_.constraints.held.size(), 0.0);
    target_ = carried_ = held_;
    if (!body_.prepare()) return false;
    const std::size_t equations = free_.free_dofs.size() + rigid_.equations;
    if (equations == 0)
        return job_.fail(RunStatus::failed, "every degree of freedom is fixed: nothing to solve");
    Q_.assign(equations, 0.0);
    nodal_Q_.assign(body_.u.size(), 0.0);
    SilentProgress silent(job_.progress);  // its lines come with the first iteration
    at_rest_ = assemble(silent);
    if (!body_.goes_on()) return false;
    if (!at_rest_) return job_.fail(RunStatus::failed, error);
    return body_.plan();
}

bool NewtonSolver::assemble(Progress& lines) {
    const auto start = Clock::now();
    if (!body_.assemble(loads_, load_factor_, lines)) {
        error = body_.error;
        return false;
    }
    seconds[assembling] += assemble_seconds_ = since(start);
    return true;
}

void NewtonSolver::set_loads(const LoadSet& loads) {
    loads_ = &loads;
    one_factor_ = loads.surface.empty() && std::ranges::none_of(loads.groups, [](const LoadGroup& group) {
                      return group.options.factor.given();
                  });
}

// The forces of the increment at the bodies' places: dead loads, whose arms turn with the bodies, and
// pressures on the surface where it is.
void NewtonSolver::set_forces(double factor) {
    load_factor_ = factor;
    const std::string& load_case = job_.options.load_case;
    const auto loads_at = [&](double time, Growth growth) {
        return applied_loads(*loads_, mesh_, rigid_, time, growth, load_case, body_.u, states_);
    };
    applied_ = loads_at(factor, Growth::with_time);
    gathered_ = applied_.nodal;
    freedoms_.constraints.map.gather(gathered_);
    if (!one_factor_) {
        F_ = reduce_loads(applied_, freedoms_, free_.free_dofs, mesh_, states_);
        return;
    }
    F_ = reduce_loads(loads_at(1, Growth::whole), freedoms_, free_.free_dofs, mesh_, states_);
    for (double& f : F_) f *= factor;
}

// Where the supports are to be at the load factor: a displacement that does not name the time grows with it.
void NewtonSolver::set_targets(double factor) {
    const NodeConstraints& constraints = freedoms_.constraints;
    const auto& records = job_.model.boundary_conditions;
    for (std::size_t k = 0; k < target_.size(); ++k) {
        double sum = 0;
        for (const HeldDof::Part& part : constraints.held[k].parts) {
            HeldDof one{constraints.held[k].dof, constraints.held[k].record, {part}};
            const bool varies = records[part.record].options.displacement[part.axis].varies;
            sum += (varies ? 1 : factor) *
                   constraints.displacement(one, records, mesh_, factor, job_.options.load_case);
        }
        target_[k] = sum;
        prescribed_ = prescribed_ || sum != 0;
    }
}

bool NewtonSolver::loads_are_finite() const {
    const auto finite = [](double v) { return std::isfinite(v); };
    return std::ranges::all_of(F_, finite) && std::ranges::all_of(target_, finite);
}

// The way of the supports from where they are, dof_num, as displacements of the nodes; empty: they stand.
std::vector<double> NewtonSolver::left_to_move() const {
    if (held_ == target_) return {};
    std::vector<double> q(body_.u.size(), 0.0);
    for (std::size_t k = 0; k < held_.size(); ++k)
        q[freedoms_.constraints.held[k].dof] = target_[k] - held_[k];
    freedoms_.constraints.map.expand(q);
    return q;
}

// E := E - K moved on the equations.
void NewtonSolver::subtract_moved(const std::vector<double>& moved, std::vector<double>& E) const {
    AppliedLoads resisted;
    resisted.nodal = body_.resistance(moved);
    resisted.rigid.assign(rigid_.bodies.size(), {});
    const std::vector<double> R = reduce_loads(resisted, freedoms_, free_.free_dofs, mesh_, states_);
    for (std::size_t k = 0; k < E.size(); ++k) E[k] -= R[k];
}

// Of the internal forces less the loads.
void NewtonSolver::add_load_stiffness(std::span<double> K_rr) const {
    std::vector<double> nodal = nodal_Q_;
    for (std::size_t d = 0; d < nodal.size(); ++d) nodal[d] -= gathered_[d];
    for (std::size_t b = 0; b < rigid_.bodies.size(); ++b) {
        const RigidBody& body = rigid_.bodies[b];
        std::vector<ForceAt> forces = forces_on_members(body, mesh_, nodal);
        forces.push_back({body.reference, times(-1, triple(applied_.rigid[b], 0))});
        add_turning_stiffness(body, states_[b], forces, rigid_.equations, K_rr);
    }
}

bool NewtonSolver::evaluate() {
    const auto start = Clock::now();
    const bool sound = body_.update_stresses();
    seconds[stressing] += since(start);
    if (!sound) {
        error = body_.error;
        return false;
    }
    const auto gather = Clock::now();
    nodal_Q_ = body_.internal_forces();
    for (const BoundaryCondition& record : job_.model.boundary_conditions)
        add_spring_forces(record, mesh_, freedoms_.node_elements, body_.u, nodal_Q_);
    freedoms_.constraints.map.gather(nodal_Q_);
    const std::size_t nf = free_.free_dofs.size();
    for (std::size_t k = 0; k < nf; ++k) Q_[k] = nodal_Q_[free_.free_dofs[k]];
    if (!rigid_.empty()) {
        const std::span<double> own = std::span(Q_).subspan(nf);
        std::fill(own.begin(), own.end(), 0.0);
        for (std::size_t b = 0; b < states_.size(); ++b) {
            const RigidBody& rigid = rigid_.bodies[b];
            project(rigid, states_[b], resultant(rigid, states_[b], mesh_, nodal_Q_), 1,
                    own.data() + rigid.first);
        }
        add_combine_forces(job_.model.rigid_combines, rigid_, states_, turns_, own);
    }
    if (loads_ && (!rigid_.empty() || !loads_->surface.empty())) set_forces(load_factor_);
    gather_seconds_ = since(gather);
    seconds[gathering] += gather_seconds_;
    return true;
}

bool NewtonSolver::place(const Placement& from, std::span<const double> du, double s) {
    body_.u = from.u;
    states_ = from.states;
    held_ = from.held;
    const std::size_t nf = free_.free_dofs.size();
    const ConstraintMap& map = freedoms_.constraints.map;
    const bool moves = !du.empty() && held_ != target_;
    if (map.empty() && !moves) {
        for (std::size_t k = 0; k < std::min(nf, du.size()); ++k) body_.u[free_.free_dofs[k]] += s * du[k];
    } else if (!du.empty()) {
        std::vector<double> q(body_.u.size(), 0.0);
        for (std::size_t k = 0; k < nf; ++k) q[free_.free_dofs[k]] = s * du[k];
        for (std::size_t k = 0; k < held_.size(); ++k) {
            const double step = s * (target_[k] - held_[k]);
            q[freedoms_.constraints.held[k].dof] = step;
            held_[k] = s == 1 ? target_[k] : held_[k] + step;
        }
        map.expand(q);
        for (std::size_t d = 0; d < q.size(); ++d) body_.u[d] += q[d];
    }
    if (!rigid_.empty() && !du.empty()) {
        std::vector<double> q(du.begin() + std::ptrdiff_t(nf), du.end());
        for (double& v : q) v *= s;
        for (std::size_t b = 0; b < states_.size(); ++b)
            states_[b] = advanced(rigid_.bodies[b], from.states[b], q.data() + rigid_.bodies[b].first);
        place_members(rigid_, states_, mesh_, body_.u);
        map.follow(body_.u);
    }
    return evaluate();
}

double NewtonSolver::energy(const std::vector<double>& du) const {
    double sum = 0;
    for (std::size_t k = 0; k < du.size(); ++k) sum += du[k] * (F_[k] - Q_[k]);
    return sum;
}

// The step s in (0, 1] at which the energy du·(F - Q) has fallen to half of its start or changed its sign
// by no more (Crisfield, Non-linear Finite Element Analysis, vol. 1, 1991, 9.2): halves a step that inverts
// an element, interpolates linearly between signs.
bool NewtonSolver::search_along(const Placement& from, const std::vector<double>& du) {
    constexpr int most_trials = 10;
    const double g0 = energy(du);
    double s = 1, below = 0, g_below = g0;
    for (int trial = 0; trial < most_trials; ++trial) {
        if (!place(from, du, s)) {
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
    return place(from, du, s);
}

bool NewtonSolver::factor_and_solve(std::vector<double>& du) {
    job_.progress.print("Static Analysis Start\n");
    auto start = Clock::now();
    const auto failed = [&] {
        error = job_.report().remarks.errors.back();
        return false;
    };
    if (!body_.factor()) return failed();
    seconds[factoring] += since(start);
    start = Clock::now();
    for (std::size_t k = 0; k < du.size(); ++k) du[k] = F_[k] - Q_[k];
    if (const std::vector<double> moved = left_to_move(); !moved.empty()) subtract_moved(moved, du);
    if (!body_.solve(du)) return failed();
    seconds[solving] += since(start);
    return true;
}

// At the first factorization, at rest: a motion that nothing resists, named in `error`.
bool NewtonSolver::finds_free_motion() {
    if (free_motion_checked_) return false;
    free_motion_checked_ = true;
    const std::string free = body_.free_motion();
    if (!free.empty()) error = free;
    return !free.empty();
}

// The heading of an iteration and the forces it starts from.
void NewtonSolver::print_head(int iteration) const {
    job_.progress.set_course(
        formatted("increment %d of %d, iteration %d", number_, options_.increments, iteration + 1));
    job_.progress.print("########## Iteration: %d, %d/%d ##########\n", iteration, number_,
                        options_.increments);
}

void NewtonSolver::print_load() const {
    for (std::size_t k = 0; job_.progress.lines_wanted() && k < numbering_.free_dofs.size(); ++k)
        if (const double load = job_.run.load[numbering_.free_dofs[k]]; load != 0)
            job_.progress.print("[%zu]:%e, %e\n", k, load_factor_ * load, load);
}

void NewtonSolver::print_rigid_displacements() const {
    for (std::size_t b = 0; b < states_.size(); ++b) {
        const Vec3 u = displacement_of(rigid_.bodies[b], states_[b], rigid_.bodies[b].reference),
                   turn = rotation_vector(states_[b].R);
        for (std::size_t c = 0; c < 6; ++c)
            job_.progress.print("rigid_disp[%zu]:%.3e\n", 6 * b + c, c < 3 ? u[c] : turn[c - 3]);
    }
}

// What forces on body b do on its way from a state, at factor 1.
double NewtonSolver::rigid_work(std::size_t b, std::span<const RigidForce> forces,
                                const RigidState& before) const {
    const RigidBody& body = rigid_.bodies[b];
    const Vec3 u = displacement_of(body, states_[b], body.reference),
               u_before = displacement_of(body, before, body.reference);
    const Vec3 turn = rotation_vector(multiply3(states_[b].R, transposed(before.R)));
    double sum = 0;
    for (const RigidForce& force : forces) {
        if (force.element != static_cast<std::int32_t>(b)) continue;
        const auto direction = static_cast<std::size_t>(force.direction);
        if (direction >= 3 && direction < 6) {
            sum += force.value * turn[direction - 3];
            continue;
        }
        const Vec6 f = rigid_force_resultant(rigid_, static_cast<std::int32_t>(b), {}, std::span(&force, 1));
        for (std::size_t c = 0; c < 3; ++c) sum += f[c] * (u[c] - u_before[c]);
    }
    return sum;
}

double NewtonSolver::work(const std::vector<double>& u_before, std::span<const RigidState> states_before,
                          double factor_before, double factor) const {
    const std::string& load_case = job_.options.load_case;
    double all = 0;
    for (const LoadGroup& group : loads_->groups) {
        if (!acts_in_case(group.options.case_name, load_case)) continue;
        double sum = 0;
        for (std::size_t d = 0; d < group.nodal.size(); ++d)
            sum += group.nodal[d] * (body_.u[d] - u_before[d]);
        for (std::size_t b = 0; b < states_.size(); ++b)
            sum += rigid_work(b, group.rigid_forces, states_before[b]);
        all += 0.5 *
               (load_factor(group.options, factor_before, Growth::with_time) +
                load_factor(group.options, factor, Growth::with_time)) *
               sum;
    }
    for (std::size_t k = 0; k < held_.size(); ++k)
        all += 0.5 * (carried_before_[k] + carried_[k]) * (held_[k] - held_before_[k]);
    if (loads_->surface.empty()) return all;
    const LoadSet pressures{{}, loads_->surface, {}};
    const auto at = [&](double time, const std::vector<double>& u) {
        return applied_loads(pressures, mesh_, {}, time, Growth::with_time, load_case, u).nodal;
    };
    const std::vector<double> before = at(factor_before, u_before), now = at(factor, body_.u);
    for (std::size_t d = 0; d < now.size(); ++d)
        all += 0.5 * (before[d] + now[d]) * (body_.u[d] - u_before[d]);
    return all;
}

// The stresses where the body is are others now; what they leave unbalanced is what E is measured against
// where no load is larger.
void NewtonSolver::meet_heat() {
    if (!evaluate()) return;
    double sum = 0;
    for (std::size_t k = 0; k < Q_.size(); ++k) sum += (Q_[k] - F_[k]) * (Q_[k] - F_[k]);
    largest_heat_ = std::max(largest_heat_, std::sqrt(sum));
}

double NewtonSolver::measure(IncrementReport& report) {
    double e = 0;
    for (std::size_t k = 0; k < Q_.size(); ++k) e += (Q_[k] - F_[k]) * (Q_[k] - F_[k]);
    for (std::size_t k = 0; k < held_.size(); ++k) {
        const std::int32_t dof = freedoms_.constraints.held[k].dof;
        carried_[k] = nodal_Q_[dof] - gathered_[dof];
    }
    const double Q = norm(Q_), F = prescribed_ ? std::hypot(norm(F_), norm(carried_)) : norm(F_),
                 E = std::sqrt(e);
    largest_load_ = std::max(largest_load_, F);
    const double against = std::max(F > 0 ? F : largest_load_, largest_heat_);
    report.ratio = against > 0 ? E / against : E;
    report.ratios.push_back(report.ratio);
    job_.progress.add_residual(report.ratio);
    job_.progress.print("Q:%e, F:%e, E:%e, E/F:%e\n", Q, F, E, report.ratio);
    return report.ratio;
}

NewtonOutcome NewtonSolver::attempt(bool search, IncrementReport& report) {
    const NewtonOutcome end = iterate(search, report);
    const bool stands = end == NewtonOutcome::converged || end == NewtonOutcome::unconverged;
    if (!stands || body_.count_negative(report.negative_pivots)) return end;
    error = job_.report().remarks.errors.back();
    return NewtonOutcome::failed;
}

NewtonOutcome NewtonSolver::iterate(bool search, IncrementReport& report) {
    report.ratios.clear();
    job_.progress.clear_residuals();
    std::vector<double> du(Q_.size());
    for (int iteration = 0;; ++iteration) {
        print_head(iteration);
        const std::int32_t elements = mesh_.element_num();
        if (!at_rest_ && !assemble(job_.progress))
            return body_.goes_on() ? NewtonOutcome::diverged : NewtonOutcome::failed;
        for (std::int32_t e = 0; at_rest_ && job_.progress.lines_wanted() && e < elements; ++e)
            job_.progress.counter(e, elements, "k=");
        at_rest_ = false;
        job_.progress.print("Calculate K sparse Complete\n");
        job_.progress.print("Kmat Time:  %lf[s]\n", assemble_seconds_);
        job_.progress.print("Force Vector\n");
        print_load();
        job_.progress.print("Force Vector Complete\n");
        const auto rigid_start = Clock::now();
        if (!rigid_.empty()) {
            const std::span<double> K_rr = body_.border(states_);
            add_combine_stiffness(job_.model.rigid_combines, rigid_, states_, turns_, K_rr);
            add_load_stiffness(K_rr);
        }
        job_.progress.print("K_F_Rigid Time:  %lf[s]\n", rigid_.empty() ? 0.0 : since(rigid_start));
        job_.progress.print("cal_QF Time:  %lf[s]\n", gather_seconds_);
        job_.progress.print("Q Rigid Transformaion\n");
        job_.progress.print("fn_no_rigid=%zu, fn_rigid=%d\n", free_.free_dofs.size(), rigid_.equations);
        job_.progress.print("Q_Rigid Time:  %lf[s]\n", 0.0);
        if (!factor_and_solve(du) || finds_free_motion()) return NewtonOutcome::failed;
        const auto start = Clock::now();
        const Placement from = placement();
        const bool sound = search ? search_along(from, du) : place(from, du, 1);
        print_rigid_displacements();
        job_.progress.print("cal_stress Time:  %lf[s]\n", since(start));
        report.iterations = iteration + 1;
        if (!sound) return NewtonOutcome::diverged;
        if (measure(report) < options_.tolerance) return NewtonOutcome::converged;
        if (!std::isfinite(report.ratio)) {
            error = "the displacements are not finite numbers";
            return NewtonOutcome::diverged;
        }
        if (iteration == options_.limit - 1) return NewtonOutcome::unconverged;
        if (!body_.goes_on()) return NewtonOutcome::failed;
    }
}

IncrementReport NewtonSolver::advance(std::int32_t number, double factor, bool or_back) {
    number_ = number;
    set_forces(factor);
    set_targets(factor);
    if (IncrementReport refused; !loads_are_finite()) {
        refused.factor = factor;
        error = "a load or a displacement of a support is not a finite number";
        outcome = NewtonOutcome::failed;
        return refused;
    }
    if (body_.set_heat(*loads_, factor)) meet_heat();
    job_.progress.print("########## Force Iteration: %d ##########\n", number);
    const Placement at_start = placement();
    held_before_ = held_;
    carried_before_ = carried_;
    IncrementReport report;
    report.factor = factor;
    outcome = attempt(false, report);
    if (outcome == NewtonOutcome::unconverged || outcome == NewtonOutcome::diverged) {
        const Placement first = placement();
        IncrementReport second;
        second.factor = factor;
        second.searched = true;
        body_.restart();
        place(at_start, {}, 0);
        const NewtonOutcome again = attempt(true, second);
        // the better end stands where neither has converged
        const bool better = again == NewtonOutcome::converged || again == NewtonOutcome::failed ||
                            outcome == NewtonOutcome::diverged ||
                            (again == NewtonOutcome::unconverged && second.ratio <= report.ratio);
        if (better) {
            outcome = again;
            report = std::move(second);
        } else {
            place(first, {}, 0);  // the first attempt's last iterate stands
            report.searched = true;
            outcome = NewtonOutcome::unconverged;
        }
    }
    report.converged = outcome == NewtonOutcome::converged;
    if (report.converged) body_.commit();
    const bool back = outcome == NewtonOutcome::unconverged && or_back;
    if (outcome == NewtonOutcome::diverged || outcome == NewtonOutcome::failed || back) {
        const std::string why = error;
        body_.restart();
        place(at_start, {}, 0);
        carried_ = carried_before_;
        error = why;
    }
    return report;
}

}  // namespace kestralum
