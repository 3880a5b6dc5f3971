#include "large/large_static.h"

#include <algorithm>
#include <cmath>

#include "analysis/section_report.h"
#include "analysis/static/static_report.h"
#include "large/large_job.h"
#include "model/format.h"
#include "system/mesh_notes.h"
#include "system/reactions.h"

namespace kestralum {

namespace {

// One load case: what acts on the whole body, and the initial strains of the piece.
struct CaseLoad {
    LinearLoad load;
    std::vector<double> F;  // one per equation, the same on every rank
};

CaseLoad load_of(LargeJob& large, const LoadSet& set, const std::string& name) {
    Job& job = large.job;
    CaseLoad out;
    LoadSet cold = set;
    cold.temperatures.clear();
    out.load = load_of_case(job, cold, large.system.freedoms, name);
    LinearLoad with_heat = out.load;
    if (!set.temperatures.empty()) {
        PieceJob here(job, large.piece);
        LoadSet heat;
        heat.temperatures = set.temperatures;
        const std::vector<double> strain =
            thermal_strains(heat, job.model, large.piece.mesh, end_of_load, Growth::whole, name);
        std::vector<double> forces(large.piece.mesh.dof_num(), 0.0);
        if (!strain.empty()) {
            out.load.initial_strain.assign(6 * strain.size(), 0.0);
            for (std::size_t p = 0; p < strain.size(); ++p)
                for (std::size_t c = 0; c < 3; ++c) out.load.initial_strain[6 * p + c] = strain[p];
            add_strain_forces(here.job, large.system.elasticity, out.load.initial_strain, forces);
        }
        forces.resize(large.piece.owned_dofs());
        const std::vector<double> all = gather_nodes(large.team, large.partition, forces, 3, true);
        for (std::size_t d = 0; d < all.size(); ++d) with_heat.applied.nodal[d] += all[d];
    }
    with_heat.initial_strain.clear();
    out.F = right_hand_side(job, large.system, with_heat);
    return out;
}

bool solve_case(LargeJob& large, LargeBordered& bordered, const std::vector<double>& F,
                std::vector<double>& q) {
    std::vector<double> f = rows_of(large, F);
    std::vector<double> g(F.end() - large.border.nr, F.end());
    if (!bordered.solve(f, g)) return false;
    q = equations_of(large, f, g);
    return true;
}

void recover_case(LargeJob& large, const CaseTerms& terms, const LinearLoad& load,
                  std::span<const double> q) {
    Job& job = large.job;
    const Freedoms& freedoms = large.system.freedoms;
    const auto frame = std::make_shared<Frame>();
    frame->name = terms.name;
    frame->mode_vec = displacements(job.mesh(), freedoms, q, load);
    frame->load = load.applied.nodal;
    const PieceStresses stresses =
        piece_stresses(job, large.system.elasticity, large.piece, frame->mode_vec, load.initial_strain);
    const std::vector<char> wanted = reaction_nodes(freedoms, job.mesh().node_num());
    const std::vector<double> residual = less_loads(
        gather_forces(large.team, job, large.partition, large.piece, stresses.points, wanted), wanted, load);
    CaseReport& report = job.report().cases.emplace_back(
        report_case(job, freedoms, residual, load, q.subspan(freedoms.numbering.free_dofs.size()), *frame));
    find_largest(large.team, job, large.piece, large.piece.of_all(frame->mode_vec), stresses.nodal);
    report.largest_displacement = job.report().largest_displacement;
    report.largest_mises = job.report().largest_mises;
    TeamError error = find_error(large.team, job, large.piece, stresses);
    report.error = error.relative;
    report.strain_energy = error.strain_energy;
    if (error.worst >= 0) report.worst_place = place_of_element(job, error.worst);
    frame->error = std::move(error.nodal);
    store_large_frame(large, frame, stresses);
}

bool recover_all(LargeJob& large, std::span<const CaseTerms> frames, std::span<const std::string> cases,
                 std::span<const CaseLoad> loads, std::span<const std::vector<double>> q) {
    Job& job = large.job;
    job.clock.begin("recover");
    if (large.team.first()) note_slivers(job);
    const std::vector<char> held = held_nodes(job, large.system.freedoms);
    for (std::int32_t n = 0; n < job.mesh().node_num(); ++n)
        if (held[n]) job.run.held_nodes.push_back(n);
    for (const CaseTerms& terms : frames) {
        LinearLoad load;
        std::vector<double> sum;
        for (const auto& [name, factor] : terms.terms) {
            const std::size_t c = std::ranges::find(cases, name) - cases.begin();
            add_load(load, factor, loads[c].load);
            if (sum.empty()) sum.assign(q[c].size(), -0.0);  // which adds nothing to a zero of either sign
            for (std::size_t k = 0; k < sum.size(); ++k) sum[k] += factor * q[c][k];
        }
        recover_case(large, terms, load, sum);
        if (!large.team.goes_on(job)) return false;
    }
    report_first_case(job.report());
    return true;
}

// Loads and solutions of the cases. The matrix and what solves with it are gone when it returns.
bool solve_cases(LargeJob& large, PieceRows rows, const LoadSet& set, std::span<const std::string> cases,
                 std::vector<CaseLoad>& loads, std::vector<std::vector<double>>& q) {
    Job& job = large.job;
    const Team& team = large.team;
    const Freedoms& freedoms = large.system.freedoms;
    job.clock.begin("matrix");
    const PetscMat matrix = make_matrix(team, freedoms, large.piece, {rows.km, rows.km.K_value}, large.scale);
    rows = {};
    set_rigid_motions(team, job.mesh(), freedoms, large.piece, matrix);
    job.clock.begin("set up");
    LargeSolver solver(team, job, method_for_border(large), job.settings.solver_tolerance);
    LargeBordered bordered(team, job, solver, large.border);
    if (!solver.set_up(matrix)) return false;
    job.clock.begin("solve");
    if (!bordered.prepare()) return false;
    if (bordered.has_free_motion())
        return job.fail(RunStatus::failed,
                        "the body is free: a motion of the rigid elements meets no resistance");
    for (const std::string& name : cases) {
        loads.push_back(load_of(large, set, name));
        if (!solve_case(large, bordered, loads.back().F, q.emplace_back())) return false;
    }
    job.report().solver = solver.outcome();
    job.report().residual = bordered.residual();
    job.report().negative_pivots = solver.negative_pivots() + bordered.negative();
    return true;
}

bool work(LargeJob& large) {
    Job& job = large.job;
    std::vector<CaseTerms> frames;
    if (!large.team.stage(job, [&] { return find_cases(job, frames); }) || !prepare_pieces(large))
        return false;
    PieceRows rows;
    std::vector<double> diagonal;
    // the numbering of the loads still has the members of rigid bodies
    Freedoms& freedoms = large.system.freedoms;
    const DofNumbering with_members = freedoms.numbering;
    if (!make_rows(large, false, rows, &diagonal)) return false;
    LoadSet set;
    if (!large.team.stage(job, [&] {
            const DofNumbering without = std::exchange(freedoms.numbering, with_members);
            const bool found =
                resolve_loads(job, freedoms, unstrained_diagonal(job, freedoms, diagonal), set);
            freedoms.numbering = without;
            return found && check_held(large);
        }))
        return false;
    const std::vector<std::string> cases = cases_of(frames);
    std::vector<CaseLoad> loads;
    std::vector<std::vector<double>> q;
    return solve_cases(large, std::move(rows), set, cases, loads, q) &&
           recover_all(large, frames, cases, loads, q);
}

}  // namespace

void analyse_static_large(const Team& team, Job& job, bool pieces) {
    LargeJob large{team, job, pieces, {}, {}, {}, {}, 1, {}};
    if (!work(large)) {
        job.run.results.clear();
        return;
    }
    write_large(large, static_columns);
}

}  // namespace kestralum
