#include "analysis/linear_run.h"

#include <algorithm>
#include <new>

#include "results/result_file.h"

namespace kestralum {

namespace {

bool write(Job& job, std::int32_t columns, Publish publish) {
    job.clock.begin("write");
    const bool written = write_results(job.model, job.run, columns, publish, job.progress);
    job.clock.end();
    return written || job.fail_to_write("the result file cannot be written");
}

bool work_whole(Job& job, AssembledSystem& system, const LinearWork& work) {
    try {
        return work(job, system) && job.goes_on();
    } catch (const std::bad_alloc&) {
        return job.fail(RunStatus::failed, "not enough memory for this model");
    }
}

}  // namespace

void run_linear(Job&& job, bool (*check)(Job& job), const LinearWork& work, std::int32_t columns) {
    AssembledSystem system;
    if (!check_analysable(job) || (check && !check(job)) ||
        !make_run_mesh(job, Renumbering::by_settings, system.freedoms))
        return;
    if (!write(job, job.model.mode_count, Publish::hold)) return;
    if (!work_whole(job, system, work)) {
        job.run.results.clear();
        release_held_results(job.model.model_file_name, job.options.log_folder);
        return;
    }
    job.report().kept = true;
    job.report().written = write(job, std::max(columns, job.run.mode_num()), Publish::now);
}

}  // namespace kestralum
