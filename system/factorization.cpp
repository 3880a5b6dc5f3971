#include "system/factorization.h"

#include <cmath>

#include "model/format.h"
#include "solver/memory_limits.h"
#include "solver/panels.h"

namespace kestralum {

std::unique_ptr<SkylineFactor> plan_factor(Job& job, const SparseKM& km, std::int32_t diag_num,
                                           const FactorNeeds& needs) {
    job.clock.begin("factor");
    Progress& progress = job.progress;
    const Settings& settings = job.settings;
    Profile profile = make_profile(km);
    progress.print("temp_n:%d\n", most_divisions(profile.rows(), diag_num));
    Divisions divisions =
        plan_divisions(profile, settings.memory_size, settings.div_memory_size, diag_num, progress);
    progress.print("[L] division:%d\n", divisions.count());
    for (std::size_t b = 0; b + 1 < divisions.div_row.size(); ++b)
        progress.print("division[%zu]:%ld, %ld, %d, %d\n", b, divisions.div_profile[b],
                       divisions.div_profile[b + 1], divisions.div_row[b], divisions.div_row[b + 1]);
    progress.print("[L]memory size=%10.1f[MB]\n", profile.megabytes());
    job.report().factor_entries = profile.Ls_num;
    const double on_disk = needs.factors_on_disk * profile.megabytes();
    if (settings.free_hd_size < on_disk) {
        progress.print("Warning:HD");
        job.fail(RunStatus::disk_budget,
                 formatted("the factor needs %.1f MB of disk, FREE_HD_SIZE allows %.1f MB", on_disk,
                           settings.free_hd_size));
        return nullptr;
    }
    remove_factor_files(job.options.log_folder,
                        mass_stem);  // an earlier run's; those of [K] are written over
    const double budget = std::min(settings.memory_size, machine_megabytes());
    const bool keep = panel_megabytes(profile, job.threads()) + needs.other_megabytes <= budget;
    return std::make_unique<SkylineFactor>(std::move(profile), std::move(divisions),
                                           FactorOptions{.threads = job.threads(),
                                                         .diag_num = diag_num,
                                                         .log_folder = job.options.log_folder,
                                                         .keep_in_memory = keep,
                                                         .write_behind = &job.progress});
}

namespace {

bool went_well(Job& job, FactorStatus status, const SkylineFactor& factor) {
    switch (status) {
        case FactorStatus::ok:
            return true;
        case FactorStatus::cancelled:
            return job.fail(RunStatus::cancelled, "the factorization was stopped on request");
        default:
            return job.fail(RunStatus::failed, "the factorization cannot go on: " + factor.error());
    }
}

}  // namespace

bool run_factorization(Job& job, Progress& progress, const SparseKM& km, std::span<const double> values,
                       SkylineFactor& factor) {
    progress.print("LU K_sparse\n");
    if (!went_well(job, factor.factor_ldl(km, values, progress), factor)) return false;
    progress.print("LU K_sparse complete\n");
    job.report().negative_pivots = factor.negative_pivots();
    return true;
}

bool await_factor_file(Job& job, SkylineFactor& factor) {
    return went_well(job, factor.await_files(), factor);
}

std::int32_t find_free_motion(const SparseKM& km, std::span<const double> values,
                              const SkylineFactor& factor) {
    constexpr double smallest_share = 1e-10;
    for (std::int32_t i = 0; i < km.rows(); ++i)
        if (!(std::abs(factor.D()[i]) >= smallest_share * std::abs(values[km.diag_pos[i]]))) return i;
    return -1;
}

}  // namespace kestralum
