#include "analysis/nonlinear/nonlinear_analysis.h"

#include <chrono>
#include <new>

#include "analysis/nonlinear/increments.h"
#include "analysis/nonlinear/whole_body.h"

namespace kestralum {

namespace {

// False where no increment stands.
bool work(Job& job, NonlinearHistory& history) {
    Freedoms freedoms;
    if (!make_run_mesh(job, Renumbering::along_longest, freedoms)) return false;
    job.progress.print("diag_num=%d\n", freedoms.diag_num);
    job.clock.begin("assemble");
    if (!check_turning_bodies(job, freedoms.rigid) || !number_freedoms(job, freedoms)) return false;
    build_elasticity(job.model.materials, job.progress);  // its line only: points have a law of their own
    const std::vector<PlasticMaterial> materials = point_materials(job);
    const std::vector<std::int32_t> material = element_materials(job.model, job.mesh());
    FiniteBody finite{job.mesh(), material, materials, job.threads()};
    finite.form = job.hexahedra();
    finite.start();
    WholeBody body(job, finite, freedoms);
    return run_nonlinear(job, freedoms, body, history);
}

bool work_whole(Job& job, NonlinearHistory& history) {
    try {
        return work(job, history);
    } catch (const std::bad_alloc&) {
        return job.fail(RunStatus::failed, "not enough memory for this model");
    }
}

void analyse(Job&& job) {
    const auto start = std::chrono::steady_clock::now();
    if (!check_nonlinear(job)) return;
    NonlinearHistory history;
    const bool done = work_whole(job, history);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
    job.progress.print("NLstatic Analysis Time:  %lf[s]\n", seconds.count());
    if (done)
        write_nonlinear(job, history);
    else
        job.run.results.clear();
}

}  // namespace

Run analyse_nonlinear(const Model& model, const Settings& settings, const RunOptions& options,
                      Progress& progress) {
    Run run;
    begin_run(run, model, settings, options, AnalysisType::nonlinear_static, "nonlinear");
    analyse({model, settings, options, progress, run});
    return run;
}

}  // namespace kestralum
