#include "system/factorization.h"

#include <algorithm>
#include <cmath>

#include "model/format.h"
#include "solver/ldl.h"
#include "solver/memory_limits.h"
#include "solver/multifrontal.h"
#include "solver/panels.h"
#include "system/iterative_factor.h"
#include "system/solver_choice.h"

namespace kestralum {

namespace {

// False with the status set where the disk has no room for what is written.
bool check_disk(Job& job, double megabytes) {
    if (job.settings.free_hd_size >= megabytes) return true;
    job.progress.print("Warning:HD");
    return job.fail(RunStatus::disk_budget,
                    formatted("the factor needs %.1f MB of disk, FREE_HD_SIZE allows %.1f MB", megabytes,
                              job.settings.free_hd_size));
}

std::unique_ptr<Factor> plan_skyline(Job& job, Profile profile, std::int32_t diag_num,
                                     const FactorNeeds& needs) {
    Progress& progress = job.progress;
    const Settings& settings = job.settings;
    progress.print("temp_n:%d\n", most_divisions(profile.rows(), diag_num));
    Divisions divisions =
        plan_divisions(profile, settings.memory_size, settings.div_memory_size, diag_num, progress);
    progress.print("[L] division:%d\n", divisions.count());
    for (std::size_t b = 0; b + 1 < divisions.div_row.size(); ++b)
        progress.print("division[%zu]:%ld, %ld, %d, %d\n", b, divisions.div_profile[b],
                       divisions.div_profile[b + 1], divisions.div_row[b], divisions.div_row[b + 1]);
    progress.print("[L]memory size=%10.1f[MB]\n", profile.megabytes());
    if (!check_disk(job, needs.factors_on_disk * profile.megabytes())) return nullptr;
    for (const char* stem : {mass_stem, fronts_stem})  // an earlier run's; those of [K] are written over
        remove_factor_files(job.options.log_folder, stem);
    const double budget = std::min(settings.memory_size, machine_megabytes());
    const bool keep = panel_megabytes(profile, job.threads()) + needs.other_megabytes <= budget;
    return std::make_unique<SkylineFactor>(std::move(profile), std::move(divisions),
                                           FactorOptions{.threads = job.threads(),
                                                         .diag_num = diag_num,
                                                         .log_folder = job.options.log_folder,
                                                         .keep_in_memory = keep,
                                                         .write_behind = &job.progress,
                                                         .write_last = needs.followed});
}

std::unique_ptr<Factor> plan_sparse(Job& job, const SparseKM& km, FrontTree tree, const FactorNeeds& needs) {
    const double megabytes = static_cast<double>(tree.entries) * 8e-6;
    job.progress.print("[L]memory size=%10.1f[MB]\n", megabytes);
    const bool keep = keeps_fronts(tree, job.settings, needs.other_megabytes, km.entries());
    if (!keep && !check_disk(job, static_cast<double>(tree.panel_doubles) * 8e-6)) return nullptr;
    const double least = spilled_front_megabytes(tree, job.threads()) + needs.other_megabytes;
    if (!keep && least > machine_megabytes()) {
        job.fail(RunStatus::failed, formatted("the factor needs %.0f MB of memory at once, this machine has "
                                              "%.0f MB",
                                              least, machine_megabytes()));
        return nullptr;
    }
    remove_factor_files(job.options.log_folder);  // an earlier run's
    job.report().factor_entries = tree.entries;
    return std::make_unique<MultifrontalFactor>(
        std::move(tree), MultifrontalOptions{job.threads(), job.options.log_folder, keep});
}

std::unique_ptr<Factor> plan_iterative(Job& job, const SparseKM& km, const FactorNeeds& needs,
                                       double megabytes) {
    job.progress.print("[L]memory size=%10.1f[MB]\n", megabytes);
    remove_factor_files(job.options.log_folder);  // an earlier run's
    const auto direct = [&job, &km, other = needs.other_megabytes](const std::string& why) {
        job.note("the iterative solver gave way to the factor: " + why);
        FactorNeeds rest;
        rest.other_megabytes = other;
        return plan_sparse(job, km, analyse_pattern(km), rest);
    };
    MultigridOptions levels;
    // the middles of edges are coupled so closely that fewer connections make better aggregates
    if (job.mesh().element_type == ElementKind::tetrahedron10) levels.threshold = 0.05;
    return std::make_unique<IterativeFactor>(
        EquationPlaces{needs.free_dofs, job.mesh().coordinates},
        IterativeOptions{job.threads(), job.settings.solver_tolerance, levels, direct});
}

}  // namespace

std::unique_ptr<Factor> plan_factor(Job& job, const SparseKM& km, std::int32_t diag_num,
                                    const FactorNeeds& needs) {
    job.clock.begin("factor");
    Profile profile = make_profile(km);
    SolverChoice choice;
    try {
        choice = choose_solver(job.settings, km, profile);
    } catch (const std::bad_alloc&) {  // or a request to end that came while METIS was at work
        if (job.goes_on()) throw;
    }
    if (!job.goes_on()) return nullptr;
    job.report().solver = choice.text();
    if (choice.kind == SolverKind::iterative)
        return plan_iterative(job, km, needs, choice.iterative->megabytes);
    if (choice.kind == SolverKind::sparse) return plan_sparse(job, km, std::move(*choice.tree), needs);
    job.report().factor_entries = profile.Ls_num;
    return plan_skyline(job, std::move(profile), diag_num, needs);
}

namespace {

bool went_well(Job& job, FactorStatus status, const Factor& factor) {
    switch (status) {
        case FactorStatus::ok:
            return true;
        case FactorStatus::cancelled:
            return job.fail(RunStatus::cancelled, "the factorization was stopped on request");
        default:  // a direct factor that could not be had has said why
            return job.report().status == RunStatus::done &&
                   job.fail(RunStatus::failed, "the factorization cannot go on: " + factor.error());
    }
}

}  // namespace

bool run_factorization(Job& job, Progress& progress, const SparseKM& km, std::span<const double> values,
                       Factor& factor) {
    progress.print("LU K_sparse\n");
    if (!went_well(job, factor.factor(km, values, progress), factor)) return false;
    progress.print("LU K_sparse complete\n");
    job.report().negative_pivots = factor.negative_pivots();
    return true;
}

bool await_factor_file(Job& job, Factor& factor) {
    return went_well(job, factor.await_files(), factor);
}

std::int32_t find_free_motion(const SparseKM& km, std::span<const double> values, Factor& factor,
                              const Progress& progress) {
    constexpr double suspicious = 1e-7, nothing = 3e-15;
    const std::vector<SmallPivot> small = factor.small_pivots(suspicious);
    if (small.empty()) return -1;
    std::vector<double> v(km.rows()), Kv(km.rows());
    for (std::size_t i = 0; i < v.size(); ++i) v[i] = 1 + 0.5 * std::sin(1.0 + 0.7 * static_cast<double>(i));
    for (int round = 0; round < 3; ++round) {
        if (!factor.solve(v, 1, &progress)) return -1;
        const double size = norm(v);
        if (!std::isfinite(size) || size == 0) return small.front().equation;  // a pivot of nothing at all
        for (double& x : v) x /= size;
    }
    multiply(km, values, v, Kv);
    const double resistance = norm(Kv);
    std::vector<double> sizes(values.begin(), values.end()), sum(km.rows());
    for (double& x : sizes) x = std::abs(x);
    for (double& x : v) x = std::abs(x);
    multiply(km, sizes, v, sum);
    if (resistance > nothing * norm(sum)) return -1;
    constexpr double surely = 1e-10;
    const auto first = std::ranges::find_if(small, [](const SmallPivot& p) { return p.share < surely; });
    return first != small.end() ? first->equation
                                : std::ranges::min_element(small, {}, &SmallPivot::share)->equation;
}

}  // namespace kestralum
