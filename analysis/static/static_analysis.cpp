#include "analysis/static/static_analysis.h"

#include <algorithm>
#include <memory>

#include "analysis/linear_run.h"
#include "analysis/section_report.h"
#include "analysis/static/static_report.h"
#include "analysis/static/static_solution.h"
#include "elements/error_estimate.h"
#include "elements/stresses.h"
#include "system/linear_loads.h"
#include "system/mesh_notes.h"
#include "system/reactions.h"

namespace kestralum {

namespace {

// Nodal forces of the points' stresses less the loads, at the nodes that the supports' reactions come from.
std::vector<double> residual_forces(const Job& job, const Freedoms& freedoms, const PointResults& points,
                                    const LinearLoad& load) {
    const Mesh& mesh = job.mesh();
    const std::vector<char> wanted = reaction_nodes(freedoms, mesh.node_num());
    return less_loads(internal_forces(mesh, points, wanted, job.hexahedra()), wanted, load);
}

// Of the frame added last.
void report_sections(Job& job, const Freedoms& freedoms, const PointResults& points, const LinearLoad& load) {
    if (job.options.sections.empty()) return;
    const Mesh& mesh = job.mesh();
    const std::vector<char> held = held_nodes(job, freedoms);
    const std::vector<double> internal = internal_forces(mesh, points, held, job.hexahedra());
    const HexahedronForm form = job.hexahedra();
    const auto forces = forces_of_stresses(mesh, {}, points.stress, [form](std::int32_t) { return form; });
    add_sections(job, {.mesh = mesh,
                       .element_forces = forces,
                       .internal = internal,
                       .applied = load.applied.nodal,
                       .held = held});
}

// points: room for the points' results.
bool recover(Job& job, const AssembledSystem& system, const CaseTerms& terms, std::span<const double> q,
             const LinearLoad& load, PointResults& points) {
    const Mesh& mesh = job.mesh();
    const Freedoms& freedoms = system.freedoms;
    const auto frame = std::make_shared<Frame>(mesh.dof_num());
    frame->name = terms.name;
    frame->mode_vec = displacements(mesh, freedoms, q, load);
    frame->load = load.applied.nodal;
    frame->load.resize(frame->mode_vec.size(), 0.0);
    job.progress.print("Strain Analysis\n");
    recover_stresses(job, system, {.form = job.hexahedra(), .initial = load.initial_strain}, points, *frame);
    if (!job.goes_on()) return false;
    CaseReport& report = job.report().cases.emplace_back(
        report_case(job, freedoms, residual_forces(job, freedoms, points, load), load,
                    q.subspan(freedoms.numbering.free_dofs.size()), *frame));
    report_largest(job, *frame);
    report.largest_displacement = job.report().largest_displacement;
    report.largest_mises = job.report().largest_mises;
    const ErrorEstimate estimate =
        estimate_error(mesh, job.model.parts, job.model.materials, freedoms.node_elements, points,
                       frame->node_stress, job.threads());
    report.error = estimate.relative;
    report.strain_energy = estimate.strain_energy;
    if (estimate.worst >= 0) report.worst_place = place_of_element(job, estimate.worst);
    frame->error = nodal_error(mesh, freedoms.node_elements, estimate, points.volume);
    if (job.run.results.empty()) note_thin_bending(job, freedoms.node_elements, points);
    job.run.results.push_back(frame);
    report_sections(job, system.freedoms, points, load);
    return true;
}

// The frames of all cases and combinations from the solutions q, one column per load case.
bool recover_all(Job& job, const AssembledSystem& system, std::span<const CaseTerms> frames,
                 std::span<const std::string> cases, std::span<const LinearLoad> loads,
                 std::span<const double> q) {
    job.clock.begin("recover");
    note_slivers(job);
    const std::vector<char> held = held_nodes(job, system.freedoms);
    for (std::int32_t n = 0; n < job.mesh().node_num(); ++n)
        if (held[n]) job.run.held_nodes.push_back(n);
    const std::size_t n = system.equations();
    PointResults points;
    for (const CaseTerms& terms : frames) {
        LinearLoad load;
        std::vector<double> sum;
        for (const auto& [name, factor] : terms.terms) {
            const std::size_t c = std::ranges::find(cases, name) - cases.begin();
            add_load(load, factor, loads[c]);
            if (sum.empty()) sum.assign(n, -0.0);  // which adds nothing to a zero of either sign
            for (std::size_t k = 0; k < n; ++k) sum[k] += factor * q[c * n + k];
        }
        if (!recover(job, system, terms, sum, load, points)) return false;
    }
    report_first_case(job.report());
    return true;
}

bool work(Job& job, AssembledSystem& system) {
    std::vector<CaseTerms> frames;
    if (!find_cases(job, frames) || !assemble_system(job, system, false)) return false;
    job.progress.print("Force Vector\n");
    LoadSet set;
    if (!resolve_loads(job, system.freedoms,
                       unstrained_diagonal(job, system.freedoms, diagonal_of(system.km)), set))
        return false;
    job.progress.print("Force Vector Complete\n");
    if (!transform_rigid(job, system, false)) return false;
    const std::vector<std::string> cases = cases_of(frames);
    std::vector<LinearLoad> loads;
    std::vector<double> q;
    for (const std::string& name : cases) {
        loads.push_back(load_of_case(job, set, system.freedoms, name));
        const std::vector<double> F = right_hand_side(job, system, loads.back());
        q.insert(q.end(), F.begin(), F.end());
    }
    job.progress.print("Static Analysis Start\n");
    std::unique_ptr<BorderedFactor> factor;  // stays until its file is written
    factor = plan_bordered(job, system);
    if (!factor || !solve_static(job, system, q, cases.size(), *factor)) return false;
    system.km.K_value = {};
    system.km.col_index = {};
    if (!factor->free() || !factor->free()->has_files()) factor.reset();
    return recover_all(job, system, frames, cases, loads, q) && (!factor || factor->await_file(job));
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
