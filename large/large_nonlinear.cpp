#include "large/large_nonlinear.h"

#include <chrono>

#include "analysis/nonlinear/increments.h"
#include "large/large_job.h"
#include "large/piece_body.h"

namespace kestralum {

namespace {

bool work(LargeJob& large, NonlinearHistory& history) {
    Job& job = large.job;
    if (!large.team.stage(job, [&] { return check_nonlinear(job, !large.pieces); })) return false;
    if (!prepare_pieces(large, Renumbering::along_longest)) return false;
    if (!large.team.stage(job, [&] { return check_turning_bodies(job, large.system.freedoms.rigid); }))
        return false;
    job.clock.begin("assemble");
    const std::vector<PlasticMaterial> materials = point_materials(job);
    PieceBody body(large, materials);
    const bool done = run_nonlinear(job, large.system.freedoms, body, history);
    job.report().solver = body.outcome();
    return done;
}

}  // namespace

void analyse_nonlinear_large(const Team& team, Job& job, bool pieces) {
    const auto start = std::chrono::steady_clock::now();
    LargeJob large{team, job, pieces, {}, {}, {}, {}, 1, {}};
    NonlinearHistory history;
    const bool done = work(large, history);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    job.progress.print("NLstatic Analysis Time:  %lf[s]\n", seconds.count());
    if (!done) {
        job.run.results.clear();
        return;
    }
    team.conclude(job, [&] {
        if (team.first()) write_nonlinear(job, history, !pieces);
        return true;
    });
}

}  // namespace kestralum
