#include "large/large_job.h"

#include <algorithm>

#include "analysis/eigen/rigid_motions.h"
#include "model/format.h"
#include "results/result_file.h"
#include "system/bordered.h"
#include "system/model_check.h"

namespace kestralum {

bool prepare_pieces(LargeJob& large, Renumbering how) {
    const Team& team = large.team;
    Job& job = large.job;
    Freedoms& freedoms = large.system.freedoms;
    if (!team.stage(job, [&] { return check_analysable(job) && make_run_mesh(job, how, freedoms); }))
        return false;
    job.clock.begin("order");
    if (!team.stage(job, [&] { return number_freedoms(job, freedoms); })) return false;
    large.system.elasticity = build_elasticity(job.model.materials, job.progress);
    job.clock.begin("partition");
    large.partition = partition(team, job.mesh(), freedoms.node_elements);
    return team.stage(job, [&] {
        large.piece = make_piece(large.partition, team.rank(), job.mesh(), freedoms.constraints.map);
        return true;
    });
}

bool check_held(LargeJob& large) {
    Job& job = large.job;
    const std::vector<Body> bodies = bodies_of(job.model, job.mesh(), large.system.freedoms);
    for (std::size_t b = 0; b < bodies.size(); ++b)
        if (!bodies[b].supported)
            return job.fail(RunStatus::failed,
                            formatted("the body is free: no support holds body %zu (part %s)", b + 1,
                                      job.model.parts[bodies[b].parts.front()].name.c_str()));
    const std::size_t motions =
        free_rigid_motions(job, large.system).size() / static_cast<std::size_t>(large.system.equations());
    return motions == 0 ||
           job.fail(RunStatus::failed, formatted("the body is free: the supports leave %zu rigid motion%s",
                                                 motions, motions == 1 ? "" : "s"));
}

bool make_rows(LargeJob& large, bool with_mass, PieceRows& rows, std::vector<double>* diagonal) {
    const Team& team = large.team;
    Job& job = large.job;
    Freedoms& freedoms = large.system.freedoms;
    job.clock.begin("assemble");
    if (!team.stage(job, [&] {
            rows = assemble_rows(job, freedoms, large.system.elasticity, large.piece, with_mass);
            return rows.error.empty() || job.fail(rows.status, rows.error);
        }))
        return false;
    job.report().total_mass = team.sum(rows.mass_sum) / 3;
    if (diagonal) {
        const std::vector<double> all = gather_nodes(team, large.partition, rows.diagonal, 3, true);
        diagonal->clear();
        for (const std::int32_t dof : freedoms.numbering.free_dofs) diagonal->push_back(all[dof]);
    }
    large.scale = scale_of(team, freedoms, large.piece, rows.km);
    large.border = make_border(team, job, freedoms, large.piece, rows.km);
    if (!freedoms.rigid.empty()) leave_members_out(freedoms.rigid, freedoms.numbering);
    large.system.border.nr = large.border.nr;
    job.report().free_dofs = std::ssize(freedoms.numbering.free_dofs) + large.border.nr;
    job.progress.print("rank 0 of %d: %d of %d nodes, %d elements, %ld entries\n", team.size(),
                       large.piece.owned, job.mesh().node_num(), large.piece.mesh.element_num(),
                       static_cast<long>(rows.km.row_start[large.piece.owned_dofs()]));
    if (job.report().free_dofs == 0)
        job.fail(RunStatus::failed, "the rigid elements and supports leave no motion: nothing to solve");
    return team.goes_on(job);
}

LargeMethod method_for_border(const LargeJob& large) {
    const std::int64_t motions = large.system.freedoms.rigid.equations,
                       rows = 3 * static_cast<std::int64_t>(large.partition.node_rank.size());
    const bool direct = rows <= direct_equations && motions * rows_of_a_motion >= rows;
    return chosen_method(large.job.settings, direct ? LargeMethod::direct : LargeMethod::multigrid);
}

LargeMethod chosen_method(const Settings& settings, LargeMethod automatic) {
    if (settings.solver == "auto") return automatic;
    return settings.solver == "iterative" ? LargeMethod::multigrid : LargeMethod::direct;
}

std::vector<double> rows_of(const LargeJob& large, std::span<const double> equations) {
    const std::vector<std::int32_t>& dof_map = large.system.freedoms.numbering.dof_map;
    std::vector<double> out(large.piece.owned_dofs(), 0.0);
    for (std::size_t row = 0; row < out.size(); ++row) {
        const std::int32_t equation =
            dof_map[3 * large.piece.nodes[row / 3] + static_cast<std::int32_t>(row % 3)];
        if (equation >= 0) out[row] = equations[equation];
    }
    return out;
}

std::vector<double> equations_of(const LargeJob& large, std::span<const double> rows,
                                 std::span<const double> bodies) {
    const std::vector<double> all = gather_nodes(large.team, large.partition, rows, 3, true);
    std::vector<double> out;
    for (const std::int32_t dof : large.system.freedoms.numbering.free_dofs) out.push_back(all[dof]);
    out.insert(out.end(), bodies.begin(), bodies.end());
    return out;
}

void store_large_frame(LargeJob& large, std::shared_ptr<Frame> frame, const PieceStresses& stresses) {
    if (large.pieces) {
        if (!large.own) large.own = counted_piece(large.job, large.piece);
        Frame& own = large.own->add_frame(large.piece.of_all(frame->mode_vec), stresses.nodal);
        own.n_freq = frame->n_freq;
        own.name = frame->name;
        frame->node_stress = {};
        if (large.team.first()) large.job.run.results.push_back(frame);
        return;
    }
    frame->node_stress = gather_stresses(large.team, large.partition, large.piece, stresses.nodal);
    if (large.team.first()) large.job.run.results.push_back(frame);
}

void write_large(LargeJob& large, std::int32_t columns) {
    Job& job = large.job;
    job.clock.begin("write");
    job.report().kept = true;
    if (large.pieces) {
        if (!large.own) large.own = counted_piece(job, large.piece);
        write_pieces(large.team, job, *large.own);
    } else {
        large.team.conclude(job, [&] {
            return !large.team.first() ||
                   write_results(job.model, job.run, std::max(columns, job.run.mode_num()), Publish::now,
                                 job.progress) ||
                   job.fail_to_write("the result file cannot be written");
        });
        job.report().written = job.report().status == RunStatus::done;
    }
    job.clock.end();
}

}  // namespace kestralum
