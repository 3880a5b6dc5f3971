#include "analysis/nonlinear/increments.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include "analysis/nonlinear/newton.h"
#include "analysis/section_report.h"
#include "conditions/rigid_combines.h"
#include "model/format.h"
#include "results/result_file.h"
#include "solver/memory_limits.h"
#include "system/assembly.h"
#include "system/reactions.h"

namespace kestralum {

namespace {

bool check_materials(Job& job) {
    for (const Material& m : job.model.materials) {
        if (!(m.poisson > -1 && m.poisson < 0.5))
            return job.fail(
                RunStatus::bad_input,
                formatted("material %s: Poisson's ratio %g: large strains want it above -1 and below 0.5",
                          m.name.c_str(), m.poisson));
        if (const std::string wrong = wrong_plastic_constant(m); !wrong.empty())
            return job.fail(RunStatus::bad_input, wrong);
    }
    if (!(job.settings.nl_conv > 0) || !std::isfinite(job.settings.nl_conv))
        return job.fail(
            RunStatus::bad_input,
            formatted("NL_CONV %g of the settings: the tolerance must be above 0", job.settings.nl_conv));
    return true;
}

// Frames of the whole run and what is kept for the logs: without frames the internal forces.
bool check_memory(Job& job, std::size_t increments, bool frames) {
    const double dofs = job.model.mesh.dof_num(), elements = job.model.mesh.element_num();
    constexpr double of_element = 8 + 0.5 * (6 + 6 + 1);  // points' Mises stresses, the frame's means
    const double values = frames ? (3 + stress_groups) * dofs + of_element * elements : dofs;
    const double megabytes = 8e-6 * static_cast<double>(increments) * values;
    const double most = machine_megabytes();
    return megabytes < most ||
           job.fail(RunStatus::bad_input,
                    formatted("step_num %zu: the results need %.1f GB, this machine has %.1f GB", increments,
                              megabytes / 1e3, most / 1e3));
}

bool store_frame(Job& job, NewtonBody& body, std::vector<double> reaction, IncrementReport& increment) {
    const auto frame = std::make_shared<Frame>();
    frame->mode_vec = body.u;
    frame->reaction = std::move(reaction);
    frame->n_freq = increment.factor;
    for (std::int32_t n = 0; n < job.mesh().node_num(); ++n)
        increment.largest_displacement = std::max(increment.largest_displacement, norm(triple(body.u, n)));
    return body.store(frame, increment);
}

void print_increment(Progress& progress, const DofNumbering& numbering, const std::vector<double>& u_before,
                     const std::vector<double>& u) {
    if (!progress.lines_wanted()) return;
    for (std::size_t k = 0; k < numbering.free_dofs.size(); ++k) {
        const std::size_t dof = numbering.free_dofs[k];
        progress.print("du[%zu]:%.3e\n", k, u[dof] - u_before[dof]);
    }
}

std::string describe(const IncrementReport& increment, std::size_t number, NewtonOutcome outcome,
                     const NewtonSolver& solver) {
    const std::string head = formatted("increment %zu (load factor %.6g) ", number, increment.factor);
    switch (outcome) {
        case NewtonOutcome::unconverged:
            return head + formatted("did not converge in %d iterations: E/F = %.3e", increment.iterations,
                                    increment.ratio);
        case NewtonOutcome::diverged:
            return head + "diverged: " + solver.error;
        default:
            return head + "could not be completed: " + solver.error;
    }
}

// nodal: dof_num, N, gets what each node has of them.
std::vector<SupportReaction> reactions_of(Job& job, const Freedoms& freedoms, NewtonBody& body,
                                          const NewtonSolver& solver, std::vector<double>& nodal) {
    const AppliedLoads& applied = solver.applied();
    std::vector<double> residual = body.internal_forces();
    const std::vector<char> wanted = reaction_nodes(freedoms, job.mesh().node_num());
    for (std::size_t d = 0; d < residual.size(); ++d) residual[d] -= wanted[d / 3] ? applied.nodal[d] : 0;
    std::vector<Vec6> bodies(freedoms.rigid.bodies.size());
    combine_resistance(job.model.rigid_combines, freedoms.rigid, solver.states(), solver.turns(), bodies);
    for (std::size_t b = 0; b < bodies.size(); ++b)
        for (std::size_t c = 0; c < 6; ++c) bodies[b][c] -= applied.rigid[b][c];
    nodal.assign(residual.size(), 0.0);
    return support_reactions(job.model, job.mesh(), freedoms, residual, bodies, body.u, Places::displaced,
                             solver.states(), nodal);
}

// Of the frame added last.
void report_sections(Job& job, const Freedoms& freedoms, NewtonBody& body, const NewtonSolver& solver) {
    const ElementForces forces = body.element_forces();
    if (job.options.sections.empty() || !forces) return;
    const std::vector<char> held = held_nodes(job, freedoms);
    const std::vector<double> internal = body.internal_forces();
    add_sections(job, {.mesh = job.mesh(),
                       .u = body.u,
                       .element_forces = forces,
                       .internal = internal,
                       .applied = solver.applied().nodal,
                       .held = held});
}

// An increment that has ended where the run can go on from: its work, its frame, its rows of the logs.
struct Increments {
    Job& job;
    const Freedoms& freedoms;
    NewtonBody& body;
    NewtonSolver& solver;
    NonlinearHistory& history;
    double factor_before = 0, work = 0;

    // False with the status set where its frame cannot be written; it stands all the same.
    bool take(IncrementReport& increment, const std::vector<double>& u_before,
              std::span<const RigidState> states_before) {
        NonlinearReport& nonlinear = job.report().nonlinear;
        const std::size_t number = nonlinear.increments.size() + 1;
        if (increment.searched)
            job.note(formatted("increment %zu was started once more, with a line search", number));
        const std::int64_t before =
            nonlinear.increments.empty() ? 0 : nonlinear.increments.back().negative_pivots;
        if (increment.negative_pivots != before)
            job.note(formatted(
                "the stiffness went from %ld to %ld negative pivots at load factor %.6g: a limit or "
                "bifurcation point was passed",
                before, increment.negative_pivots, increment.factor));
        print_increment(job.progress, freedoms.numbering, u_before, body.u);
        increment.work = work += solver.work(u_before, states_before, factor_before, increment.factor);
        factor_before = increment.factor;
        solver.keep_turns();
        std::vector<double> reaction;
        increment.supports = reactions_of(job, freedoms, body, solver, reaction);
        const bool stored = store_frame(job, body, std::move(reaction), increment);
        report_sections(job, freedoms, body, solver);
        history.add(job, increment, solver.internal(), body);
        nonlinear.increments.push_back(increment);
        return stored;
    }
};

// One increment, with what it takes: true where the run goes on.
bool run_increment(Increments& done, double factor, int may_be_halved, bool& halve) {
    Job& job = done.job;
    NewtonSolver& solver = done.solver;
    const std::vector<double> u_before = done.body.u;
    const std::vector<RigidState> states_before(solver.states().begin(), solver.states().end());
    const std::size_t number = job.report().nonlinear.increments.size() + 1;
    IncrementReport increment = solver.advance(static_cast<std::int32_t>(number), factor, may_be_halved > 0);
    job.report().nonlinear.iterations += increment.iterations;
    if (job.report().status == RunStatus::cancelled) return false;
    const std::string text = describe(increment, number, solver.outcome, solver);
    const bool diverged = solver.outcome == NewtonOutcome::diverged;
    halve = may_be_halved > 0 && (diverged || solver.outcome == NewtonOutcome::unconverged);
    if (halve) {
        job.note(text + ": it is halved");
        return true;
    }
    if (diverged || solver.outcome == NewtonOutcome::failed) {
        job.report().remarks.errors.clear();  // what the factor said is in the text
        return job.fail(RunStatus::failed, text);
    }
    if (!done.take(increment, u_before, states_before)) return false;
    if (solver.outcome != NewtonOutcome::unconverged) return true;
    if (job.settings.nl_static != 1) return job.fail(RunStatus::failed, text);
    job.note(text);
    return true;
}

// All increments, up to the first that the run cannot go on from; one that does not converge is halved as
// often as the control file allows.
void run_increments(Job& job, const Freedoms& freedoms, std::span<const double> factors, NewtonBody& body,
                    NewtonSolver& solver, NonlinearHistory& history) {
    Increments done{job, freedoms, body, solver, history};
    for (const double factor : factors) {
        struct Goal {
            double factor;
            int may_be_halved;
        };
        std::vector<Goal> goals{{factor, job.model.control.nl_halving}};  // the last is the next
        while (!goals.empty()) {
            Goal& goal = goals.back();
            bool halve = false;
            if (!run_increment(done, goal.factor, goal.may_be_halved, halve)) return;
            if (!halve) {
                goals.pop_back();
                continue;
            }
            --goal.may_be_halved;
            goals.push_back({0.5 * (done.factor_before + goal.factor), goal.may_be_halved});
        }
    }
}

void report_end(Job& job, const NewtonSolver& solver, NewtonBody& body) {
    RunReport& report = job.report();
    const IncrementReport& last = report.nonlinear.increments.back();
    const AppliedLoads& applied = solver.applied();
    for (std::size_t d = 0; d < applied.nodal.size(); ++d) report.applied[d % 3] += applied.nodal[d];
    for (const Vec6& force : applied.rigid)
        for (std::size_t c = 0; c < 3; ++c) report.applied[c] += force[c];
    report.supports = last.supports;
    report.reaction = sum_of(report.supports);
    report.residual = last.ratio;
    report.negative_pivots = last.negative_pivots;
    body.find_largest();
}

// Of the increments: the caller's, the control file's list or expression, else k / step_num.
std::vector<double> load_factors(const Job& job) {
    const AnalysisControl& control = job.model.control;
    if (!job.options.factors.empty()) return job.options.factors;
    if (!control.load_factors.empty()) return control.load_factors;
    std::vector<double> factors;
    const std::int32_t steps = std::max(job.model.mode_count, 1);
    for (std::int32_t k = 1; k <= steps; ++k) {
        const double time = static_cast<double>(k) / steps;
        constexpr double nowhere[3] = {};
        const FieldExpression& expression = control.load_factor_expression;
        factors.push_back(expression.given() ? expression.at(nowhere, time) : time);
    }
    return factors;
}

bool check_factors(Job& job) {
    for (const double factor : load_factors(job))
        if (!std::isfinite(factor))
            return job.fail(RunStatus::bad_input, "LOAD_FACTOR_EXPR " +
                                                      job.model.control.load_factor_expression.text +
                                                      ": a load factor is not a finite number");
    return true;
}

}  // namespace

bool check_nonlinear(Job& job, bool keeps_frames) {
    if (!check_analysable(job) || !check_case(job) || !check_materials(job)) return false;
    if (job.options.factors.empty() && !check_memory(job, std::max(job.model.mode_count, 1), keeps_frames))
        return false;
    return check_factors(job);
}

std::vector<PlasticMaterial> point_materials(Job& job) {
    std::vector<PlasticMaterial> materials;
    bool yields = false;
    for (const Material& m : job.model.materials) {
        PlasticMaterial point = j2_material(m, true);
        yields = yields || has_yield_stress(m);
        if (has_yield_stress(m) && m.shear_modulus > 0 && !m.elastic_shear) point.shear = m.shear_modulus;
        materials.push_back(point);
    }
    if (yields && !job.model.control.plastic)
        job.note(
            "Plastic is off in the control file: that is the explicit analysis' switch; here materials with "
            "a "
            "yield stress yield");
    return materials;
}

std::vector<std::int32_t> element_materials(const Model& model, const Mesh& mesh) {
    std::vector<std::int32_t> out;
    for (std::int32_t part : mesh.p_ele_part_id) out.push_back(model.parts[part].material_id);
    return out;
}

bool run_nonlinear(Job& job, const Freedoms& freedoms, NewtonBody& body, NonlinearHistory& history) {
    const std::vector<double> factors = load_factors(job);
    NewtonOptions options{job.settings.nl_conv, 100, static_cast<std::int32_t>(factors.size())};
    if (job.model.iteration_limit >= 1 && job.model.iteration_limit <= 100)
        options.limit = job.model.iteration_limit;
    NewtonSolver solver(job, body, freedoms, options);
    if (!solver.prepare()) return false;
    job.report().free_dofs = static_cast<std::int64_t>(solver.internal().size());
    LoadSet loads;
    const bool found =
        resolve_loads(job, freedoms, unstrained_diagonal(job, freedoms, body.diagonal()), loads);
    if (!body.goes_on() || !found) return false;
    solver.set_loads(loads);
    job.clock.begin("iterate");
    job.report().nonlinear.wanted = options.increments;
    history.begin(job, freedoms.node_elements);
    run_increments(job, freedoms, factors, body, solver, history);
    for (std::size_t s = 0; s < solver.seconds.size(); ++s)
        job.report().nonlinear.seconds[s] = solver.seconds[s];
    if (job.report().status == RunStatus::cancelled || job.report().nonlinear.increments.empty())
        return false;
    job.clock.begin("recover");
    report_end(job, solver, body);
    return body.await_file();
}

void write_nonlinear(Job& job, const NonlinearHistory& history, bool keeps_frames) {
    job.clock.begin("write");
    RunReport& report = job.report();
    report.kept = true;
    report.nonlinear.history_written = history.write(job);
    if (keeps_frames && report.status != RunStatus::cancelled) {
        report.written = write_results(job.model, job.run, job.run.mode_num(), Publish::now, job.progress);
        if (!report.written) job.fail_to_write("the result file cannot be written");
    }
    job.clock.end();
}

}  // namespace kestralum
