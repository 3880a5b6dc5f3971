#include "analysis/nonlinear/nonlinear_analysis.h"

#include <unistd.h>

#include <chrono>
#include <cmath>

#include "analysis/nonlinear/newton.h"
#include "analysis/nonlinear/nonlinear_output.h"
#include "model/console.h"
#include "results/result_file.h"
#include "system/linear_system.h"

namespace kestralum {

namespace {

// What one run holds beside the store.
struct NonlinearRun {
    ModelStore& store;
    const Settings& settings;
    const NonlinearOptions& options;
    NodeElements node_elements;
    DofNumbering numbering;
    RigidSystem rigid;
    std::vector<std::int32_t> material;  // per element
    std::vector<J2Material<double>> materials;
    std::vector<double> factors;
    NonlinearHistory history;
};

bool check_materials(const ModelStore& store, RunReport& report) {
    for (const Material& m : store.materials) {
        if (!(m.poisson > -1 && m.poisson < 0.5)) {
            report.fail(RunStatus::bad_input,
                        console::format(
                            "material %s: Poisson's ratio %g: large strains want it above -1 and below 0.5",
                            m.name.c_str(), m.poisson));
            return false;
        }
        if (m.yield_stress > 0 && m.hardening < 0) {
            report.fail(RunStatus::bad_input,
                        console::format("material %s: Sd=%g: the hardening modulus must not be negative",
                                        m.name.c_str(), m.hardening));
            return false;
        }
    }
    return true;
}

// Frames of the whole run and what is kept for the logs.
bool check_memory(const ModelStore& store, std::size_t increments, RunReport& report) {
    const double dofs = 3.0 * store.mesh.node_num(), points = 8.0 * store.mesh.element_num();
    const double bytes = 8.0 * static_cast<double>(increments) * ((2 + stress_groups) * dofs + points);
    const double physical =
        static_cast<double>(sysconf(_SC_PHYS_PAGES)) * static_cast<double>(sysconf(_SC_PAGE_SIZE));
    if (bytes < physical) return true;
    report.fail(RunStatus::bad_input,
                console::format("step_num %zu: the results need %.1f GB, this machine has %.1f GB",
                                increments, bytes / 1e9, physical / 1e9));
    return false;
}

void set_materials(NonlinearRun& run, RunReport& report) {
    for (const Material& m : run.store.materials) {
        J2Material<double> point = j2_material(m, true);
        if (m.yield_stress > 0 && m.shear_modulus > 0) {
            if (std::abs(m.shear_modulus - point.shear) > 1e-3 * point.shear)
                report.remarks.notices.push_back(
                    console::format("material %s: G=%g is used, E and Poisson's ratio would give %g",
                                    m.name.c_str(), m.shear_modulus, point.shear));
            point.shear = m.shear_modulus;
        }
        run.materials.push_back(point);
    }
    for (std::int32_t part : run.store.mesh.p_ele_part_id)
        run.material.push_back(run.store.parts[part].material_id);
}

void store_frame(NonlinearRun& run, const FiniteBody& body, IncrementReport& increment) {
    ModelStore& store = run.store;
    const auto dofs = static_cast<std::size_t>(store.mesh.dof_num), k = run.history.factors.size();
    std::copy(body.u.begin(), body.u.end(),
              store.results.mode_vec.begin() + static_cast<std::ptrdiff_t>(k * dofs));
    store.results.n_freq[k] = increment.factor;
    std::vector<double> alpha(body.current.size());
    for (std::size_t p = 0; p < alpha.size(); ++p) alpha[p] = body.current[p].alpha;
    mean_stress_strain(
        store.mesh, run.node_elements, finite_point_results(body), alpha, body.threads,
        std::span(store.results.node_stress).subspan(stress_groups * k * dofs, stress_groups * dofs));
    for (std::size_t n = 0; n < dofs / 3; ++n) {
        const double* u = body.u.data() + 3 * n;
        increment.largest_displacement =
            std::max(increment.largest_displacement, std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]));
    }
    increment.plastic_share = plastic_share(body);
}

void print_increment(const DofNumbering& numbering, const std::vector<double>& u_before,
                     const std::vector<double>& u) {
    if (!console::lines_enabled()) return;
    for (std::size_t k = 0; k < numbering.free_dofs.size(); ++k) {
        const std::size_t dof = numbering.free_dofs[k];
        console::print("du[%zu]:%.3e\n", k, u[dof] - u_before[dof]);
    }
}

std::string describe(const IncrementReport& increment, std::size_t number, NewtonOutcome outcome,
                     const NewtonSolver& solver) {
    const std::string head = console::format("increment %zu (load factor %.6g) ", number, increment.factor);
    switch (outcome) {
        case NewtonOutcome::unconverged:
            return head + console::format("did not converge in %d iterations: E/F = %.3e",
                                          increment.iterations, increment.ratio);
        case NewtonOutcome::diverged:
            return head + "diverged: " + solver.error;
        default:
            return head + "could not be completed: " + solver.error;
    }
}

// All increments; the last frames that were not reached are cut off.
void run_increments(NonlinearRun& run, FiniteBody& body, NewtonSolver& solver, RunReport& report) {
    NonlinearReport& nonlinear = report.nonlinear;
    const bool go_on = run.settings.nl_static == 1;
    double factor_before = 0, work = 0;
    for (std::size_t k = 0; k < run.factors.size(); ++k) {
        const std::vector<double> u_before = body.u;
        const std::vector<RigidState> states_before(solver.states().begin(), solver.states().end());
        IncrementReport increment = solver.advance(static_cast<std::int32_t>(k + 1), run.factors[k]);
        nonlinear.iterations += static_cast<std::int64_t>(increment.iterations);
        const NewtonOutcome outcome = solver.outcome;
        if (outcome == NewtonOutcome::diverged || outcome == NewtonOutcome::failed) {
            report.fail(RunStatus::failed, describe(increment, k + 1, outcome, solver));
            break;
        }
        if (increment.searched)
            report.remarks.notices.push_back(
                console::format("increment %zu was started once more, with a line search", k + 1));
        const std::int64_t before =
            nonlinear.increments.empty() ? 0 : nonlinear.increments.back().negative_pivots;
        if (increment.negative_pivots != before)
            report.remarks.notices.push_back(
                console::format("the stiffness went from %lld to %lld negative pivots at load factor %.6g: a "
                                "limit or bifurcation point was passed",
                                static_cast<long long>(before),
                                static_cast<long long>(increment.negative_pivots), increment.factor));
        print_increment(run.numbering, u_before, body.u);
        increment.work = work += solver.work(u_before, states_before, factor_before, increment.factor);
        factor_before = increment.factor;
        store_frame(run, body, increment);
        run.history.add(increment.factor, solver.internal(), body);
        nonlinear.increments.push_back(increment);
        if (outcome == NewtonOutcome::unconverged) {
            const std::string text = describe(increment, k + 1, outcome, solver);
            if (!go_on) {
                report.fail(RunStatus::failed, text);
                break;
            }
            report.remarks.notices.push_back(text);
        }
    }
    for (std::size_t s = 0; s < nonlinear.seconds.size(); ++s) nonlinear.seconds[s] = solver.seconds[s];
}

void report_end(NonlinearRun& run, const FiniteBody& body, const NewtonSolver& solver,
                const std::vector<double>& load, RunReport& report) {
    if (report.nonlinear.increments.empty()) return;
    const IncrementReport& last = report.nonlinear.increments.back();
    for (std::size_t k = 0; k < load.size(); ++k)
        report.applied[run.numbering.free_dofs[k] % 3] += last.factor * load[k];
    std::vector<double> nodal(run.store.mesh.dof_num, 0.0);
    for (std::size_t k = 0; k < load.size(); ++k) nodal[run.numbering.free_dofs[k]] = last.factor * load[k];
    const std::vector<Vec6> springs =
        combine_resistance(run.store.rigid_combines, run.rigid, solver.states());
    std::vector<Vec6> loads;
    for (std::size_t b = 0; b < run.rigid.bodies.size(); ++b) {
        loads.push_back(resultant(run.rigid.bodies[b], solver.states()[b], run.store.mesh, nodal));
        const Vec6 own = rigid_force_resultant(run.rigid, static_cast<std::int32_t>(b), solver.states()[b],
                                               run.store.rigid_forces);
        for (std::size_t c = 0; c < 6; ++c) loads[b][c] += last.factor * own[c];
        for (std::size_t c = 0; c < 3; ++c) report.applied[c] += last.factor * own[c];
    }
    report.reaction =
        sum_reactions(run.numbering, run.rigid, internal_forces(body, run.node_elements), springs, loads);
    report.residual = last.ratio;
    report.negative_pivots = last.negative_pivots;
    report_largest(run.store, static_cast<std::int32_t>(report.nonlinear.increments.size()) - 1, report);
}

bool analyse(NonlinearRun& run, RunReport& report) {
    ModelStore& store = run.store;
    report.clock.begin("order");
    renumber_along_longest(store);
    console::print("diag_num=%d\n", store.diag_num);
    report.clock.begin("assemble");
    if (!number_freedoms(store, run.node_elements, run.numbering, report)) return false;
    if (!find_rigid_bodies(store, run.node_elements, run.numbering, run.rigid, report)) return false;
    build_elasticity(store.materials);
    set_materials(run, report);
    FiniteBody body{store.mesh, run.material, run.materials, run.settings.threads()};
    body.start();
    NewtonOptions options{run.settings.nl_conv, 100, static_cast<std::int32_t>(run.factors.size()),
                          store.diag_num};
    if (store.iteration_limit >= 1 && store.iteration_limit <= 100) options.limit = store.iteration_limit;
    const NewtonBodies bodies{run.rigid, store.rigid_forces, store.rigid_combines};
    NewtonSolver solver(body, run.node_elements, run.numbering, {}, options, run.settings,
                        run.rigid.empty() ? nullptr : &bodies);
    if (!solver.prepare(report)) return false;
    report.free_dofs = static_cast<std::int64_t>(solver.internal().size());
    const LoadVector load =
        build_loads(store.forces, store.mesh, run.numbering,
                    unstrained_diagonal(store, run.numbering, run.rigid, solver.stiffness()));
    report_unused_records(store, run.numbering, load, report);
    solver.set_load(load.F);
    store.results.resize(static_cast<std::int32_t>(run.factors.size()), store.mesh.dof_num);
    report.clock.begin("iterate");
    report.nonlinear.wanted = static_cast<std::int32_t>(run.factors.size());
    run.history.begin(store, run.node_elements, run.options.probes);
    run_increments(run, body, solver, report);
    report.clock.begin("recover");
    store.results.keep(static_cast<std::int32_t>(report.nonlinear.increments.size()), store.mesh.dof_num);
    report_end(run, body, solver, load.F, report);
    return !report.nonlinear.increments.empty();
}

}  // namespace

RunReport run_nonlinear(ModelStore& store, const Settings& settings, const NonlinearOptions& options) {
    const auto start = std::chrono::steady_clock::now();
    RunReport report;
    if (!check_analysable(store, report) || !check_materials(store, report)) return report;
    if (!(settings.nl_conv > 0) || !std::isfinite(settings.nl_conv))
        return report.fail(
            RunStatus::bad_input,
            console::format("NL_CONV %g of the settings: the tolerance must be above 0", settings.nl_conv));
    NonlinearRun run{store, settings, options, {}, {}, {}, {}, {}, options.factors, {}};
    const std::int32_t steps = store.mode_count < 1 ? 1 : store.mode_count;
    if (run.factors.empty() && !check_memory(store, static_cast<std::size_t>(steps), report)) return report;
    for (std::int32_t k = 1; options.factors.empty() && k <= steps; ++k)
        run.factors.push_back(double(k) / steps);
    store.ana_type = AnalysisType::nonlinear_static;
    const bool done = analyse(run, report);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    console::print("NLstatic Analysis Time:  %lf[s]\n", seconds.count());
    if (done) {
        report.clock.begin("write");
        report.nonlinear.history_written = run.history.write(store, report);
        report.written = write_results(store, Publish::now, settings.threads());
        if (!report.written) report.fail(RunStatus::failed, "the result file cannot be written");
    }
    report.clock.end();
    return report;
}

NonlinearOptions& nonlinear_options() {
    static NonlinearOptions options;
    return options;
}

RunReport exec_nonlinear() {
    return run_nonlinear(model_store(), settings(), nonlinear_options());
}

}  // namespace kestralum
