#include "analysis/eigen/modes_by_iteration.h"

#include <algorithm>
#include <cmath>

#include "analysis/eigen/basis.h"
#include "model/format.h"
#include "solver/lobpcg.h"

namespace kestralum {

namespace {

// Shift of a free body's preconditioner, (K + σM)⁻¹, as a share of what its elastic eigenvalues are like.
constexpr double free_shift = 1e-3;

BlockOperator mass_product(EigenProblem& problem) {
    return [&problem](std::span<const double> x, std::span<double> y, std::int32_t k) {
        problem.multiply_m(x, y, k);
        return problem.progress().cancelled() ? SolveStatus::cancelled : SolveStatus::ok;
    };
}

LobpcgResult search(EigenProblem& problem, IterativeFactor& levels, std::span<const double> rigid,
                    std::int32_t modes) {
    Job& job = problem.job();
    LobpcgProblem task;
    task.n = problem.n();
    task.multiply_k = [&](std::span<const double> x, std::span<double> y, std::int32_t k) {
        problem.multiply_k(x, y, k);
        return job.progress.cancelled() ? SolveStatus::cancelled : SolveStatus::ok;
    };
    task.multiply_m = mass_product(problem);
    task.precondition = [&](std::span<double> x, std::int32_t k) {
        return levels.levels().precondition(x, k, &job.progress);
    };
    task.null_space = rigid;
    LobpcgOptions options;
    options.n_mode = modes;
    options.threads = job.threads();
    options.each = [&](int iteration, std::int32_t converged) {
        job.progress.print("LOBPCG %d: %d of %d modes\n", iteration, converged, modes);
        job.progress.set_count(converged, modes);
    };
    LobpcgResult found = lobpcg(task, options, &job.progress);
    problem.report().solved_columns += found.preconditioned;
    problem.report().rounds = found.iterations;
    return found;
}

}  // namespace

bool modes_by_iteration(EigenProblem& problem, const AssembledSystem& system, const EigenOptions& options,
                        IterativeFactor& levels, EigenPairs& pairs) {
    Job& job = problem.job();
    const auto give_way = [&](const std::string& why) { return levels.give_way(why) && false; };
    if (system.border.nr > 0) return give_way("rigid elements stand beside the sparse matrix");
    const std::int32_t rigid = options.rigid;
    if (options.n_mode <= rigid)
        return give_way("no more modes are asked for than the body has rigid motions");
    std::vector<double> shifted;  // of a free body; K itself where it is positive
    if (options.rigid > 0) {
        const double sigma = free_shift * problem.elastic_scale();
        shifted = system.km.K_value;
        for (std::size_t k = 0; k < shifted.size(); ++k) shifted[k] += sigma * system.km.M_value[k];
    }
    job.clock.begin("factor");
    const FactorStatus status =
        levels.factor(system.km, shifted.empty() ? system.km.K_value : shifted, job.progress);
    if (!job.goes_on()) return false;
    if (status != FactorStatus::ok)
        return job.report().status == RunStatus::done && job.fail(RunStatus::failed, levels.error());
    if (!levels.iterates()) return false;
    job.clock.begin("iterate");
    Basis null_space(problem, rigid);
    if (!null_space.add(options.rigid_motions)) return false;
    if (null_space.count() < rigid) return give_way("the rigid motions are not independent");
    const LobpcgResult found = search(problem, levels, null_space.vectors(), options.n_mode - rigid);
    if (!job.goes_on()) return false;
    if (found.status == SolveStatus::out_of_memory)
        return job.fail(RunStatus::failed, "not enough memory for this model");
    const bool all = found.lambda.size() == std::size_t(options.n_mode - rigid);
    const bool good = all && (found.status == SolveStatus::ok || (found.status == SolveStatus::stalled &&
                                                                  std::ranges::max(found.residual) < 1e-6));
    if (!good) return give_way("the iteration for the modes does not come to its end");
    pairs.lambda.assign(rigid, 0.0);
    pairs.lambda.insert(pairs.lambda.end(), found.lambda.begin(), found.lambda.end());
    pairs.vectors.assign(null_space.vectors().begin(), null_space.vectors().end());
    pairs.vectors.insert(pairs.vectors.end(), found.vectors.begin(), found.vectors.end());
    job.report().solver += formatted(", %d iterations", found.iterations);
    job.note("the modes were found by iteration: without a factor their number could not be checked");
    return true;
}

}  // namespace kestralum
