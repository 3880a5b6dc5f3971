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

void recover_stresses(Job& job, const AssembledSystem& system, const PointOptions& options,
                      PointResults& points, Frame& frame) {
    point_stresses(job.mesh(), job.model.parts, system.elasticity, frame.mode_vec, job.threads(), points,
                   job.progress, options);
    mean_stress_strain(job.mesh(), system.freedoms.node_elements, points, {}, job.threads(),
                       frame.node_stress, job.progress);
}

bool store_shapes(Job& job, const AssembledSystem& system, std::span<const double> values,
                  std::span<const double> vectors, void (*scale)(std::span<double> u)) {
    job.clock.begin("recover");
    const std::size_t n = system.equations();
    job.progress.print("Strain Analysis\n");
    PointResults points;
    for (std::size_t j = 0; j < values.size() && job.goes_on(); ++j) {
        const auto frame = std::make_shared<Frame>(job.mesh().dof_num());
        frame->n_freq = values[j];
        expand_solution(job.mesh(), system.freedoms, vectors.subspan(j * n, n), frame->mode_vec);
        if (scale) scale(frame->mode_vec);
        recover_stresses(job, system, {.form = job.hexahedra(), .initial = {}}, points, *frame);
        job.run.results.push_back(frame);
    }
    return job.goes_on();
}

}  // namespace kestralum
