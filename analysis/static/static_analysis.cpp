#include "analysis/static/static_analysis.h"

#include <cmath>
#include <memory>

#include "analysis/linear_run.h"
#include "elements/stresses.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::int32_t static_columns = 6;  // of the result file

void report_applied(Job& job, const RigidSystem& rigid) {
    std::array<double, 3>& applied = job.report().applied;
    for (std::size_t d = 0; d < job.run.load.size(); ++d) applied[d % 3] += job.run.load[d];
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const Vec6 force =
            rigid_force_resultant(rigid, static_cast<std::int32_t>(b), {}, job.model.rigid_forces);
        for (std::size_t c = 0; c < 3; ++c) applied[c] += force[c];
    }
}

// Where nothing holds a node or a rigid element the run has failed; its numbers are written all the same.
void check_held(Job& job, const AssembledSystem& system, const BorderedFactor& factor) {
    const std::int32_t loose =
        factor.free() ? find_free_motion(system.km, system.km.K_value, *factor.free(), job.progress) : -1;
    if (loose >= 0) {
        const std::int32_t dof = system.freedoms.numbering.free_dofs[loose];
        const double* x = job.mesh().node(dof / 3);
        job.fail(RunStatus::failed,
                 formatted("the body is free: the supports do not hold node %d at (%.6g, %.6g, %.6g) in %c",
                           dof / 3 + 1, x[0], x[1], x[2], "xyz"[dof % 3]));
        return;
    }
    if (!factor.has_free_motion(system.border.K_rr)) return;
    std::string names;
    for (const RigidElement& element : job.model.rigid_elements)
        names += (names.empty() ? "" : ", ") + element.name;
    job.fail(RunStatus::failed,
             "the body is free: a motion of the rigid elements (" + names + ") meets no resistance");
}

// F in, u out: one value per equation.
bool solve(Job& job, const AssembledSystem& system, std::vector<double>& u,
           std::unique_ptr<BorderedFactor>& factor) {
    factor = plan_bordered(job, system);
    if (!factor || !factor->factor(job, job.progress, system.km, system.km.K_value, system.border.K_fr,
                                   system.border.K_rr))
        return false;
    job.clock.begin("solve");
    const std::vector<double> F = u;
    if (!factor->solve(job, u)) return false;
    job.report().negative_pivots = factor->negative_pivots();  // the solve may have taken another factor
    if (const std::string outcome = factor->free() ? factor->free()->outcome() : ""; !outcome.empty())
        job.report().solver += ", " + outcome;
    std::vector<double> Ku(u.size());
    multiply(system.km, system.km.K_value, std::span(u).first(system.km.rows()), Ku);
    multiply_border(system.border, system.border.K_fr, system.border.K_rr, u, Ku, 1);
    for (std::size_t k = 0; k < Ku.size(); ++k) Ku[k] -= F[k];
    const double load = norm(F);
    job.report().residual = load > 0 ? norm(Ku) / load : norm(Ku);
    if (!std::isfinite(norm(u)))
        return job.fail(RunStatus::failed, "the displacements are not finite numbers");
    check_held(job, system, *factor);
    return true;
}

// q: the amounts of the rigid bodies' motions.
void report_reactions(Job& job, const AssembledSystem& system, const PointResults& points,
                      std::span<const double> q) {
    const Mesh& mesh = job.mesh();
    const RigidSystem& rigid = system.freedoms.rigid;
    std::vector<char> wanted(mesh.node_num(), 0);
    for (std::int32_t n : system.freedoms.numbering.fixed_nodes) wanted[n] = 1;
    std::vector<Vec6> springs, loads;
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const auto number = static_cast<std::int32_t>(b);
        for (std::int32_t n : rigid.bodies[b].members) wanted[n] = !rigid.bodies[b].fixed.empty();
        springs.push_back(spring_resistance(job.model.rigid_combines, rigid, number, q));
        loads.push_back(resultant(rigid.bodies[b], {}, mesh, job.run.load));
        const Vec6 own = rigid_force_resultant(rigid, number, {}, job.model.rigid_forces);
        for (std::size_t c = 0; c < 6; ++c) loads[b][c] += own[c];
    }
    job.report().reaction = sum_reactions(
        system.freedoms, internal_forces(mesh, points, wanted, job.hexahedra()), springs, loads);
}

bool recover(Job& job, const AssembledSystem& system, std::span<const double> q) {
    job.clock.begin("recover");
    const Mesh& mesh = job.mesh();
    const Freedoms& freedoms = system.freedoms;
    const auto frame = std::make_shared<Frame>(mesh.dof_num());
    expand_solution(mesh, freedoms, q, frame->mode_vec);
    job.progress.print("Strain Analysis\n");
    PointResults points;
    point_stresses(mesh, job.model.parts, system.elasticity, frame->mode_vec, job.threads(), points,
                   job.progress, {.form = job.hexahedra()});
    mean_stress_strain(mesh, freedoms.node_elements, points, {}, job.threads(), frame->node_stress,
                       job.progress);
    if (!job.goes_on()) return false;
    report_reactions(job, system, points, q.subspan(freedoms.numbering.free_dofs.size()));
    report_largest(job, *frame);
    job.run.results.push_back(frame);
    return true;
}

bool work(Job& job, AssembledSystem& system) {
    if (!assemble_system(job, system, false)) return false;
    job.progress.print("Force Vector\n");
    resolve_loads(job, system.freedoms, unstrained_diagonal(job, system.freedoms, system.km));
    job.progress.print("Force Vector Complete\n");
    report_applied(job, system.freedoms.rigid);
    if (!transform_rigid(job, system, false)) return false;
    std::vector<double> q = reduce_loads(job, system.freedoms.numbering, system.freedoms.rigid, {});
    job.progress.print("Static Analysis Start\n");
    std::unique_ptr<BorderedFactor> factor;  // stays until its file is written
    if (!solve(job, system, q, factor)) return false;
    system.km = {};
    if (!factor->free() || !factor->free()->has_files()) factor.reset();
    return recover(job, system, q) && (!factor || factor->await_file(job));
}

}  // namespace

Run analyse_static(const Model& model, const Settings& settings, const RunOptions& options,
                   Progress& progress) {
    Run run;
    begin_run(run, model, settings, options, AnalysisType::linear_static, "static");
    run_linear({model, settings, options, progress, run}, nullptr, work, static_columns);
    return run;
}

}  // namespace kestralum
