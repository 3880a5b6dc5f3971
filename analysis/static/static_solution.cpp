#include "analysis/static/static_solution.h"

#include <algorithm>
#include <cmath>

#include "model/format.h"

namespace kestralum {

namespace {

// Where nothing holds a node or a rigid element the run has failed; its numbers are written all the same.
void check_held(Job& job, const AssembledSystem& system, const BorderedFactor& factor) {
    const std::int32_t loose =
        factor.free() ? find_free_motion(system.km, system.km.K_value, *factor.free(), job.progress) : -1;
    if (loose >= 0) {
        const std::int32_t dof = system.freedoms.numbering.free_dofs[loose];
        const double* x = job.mesh().node(dof / 3);
        job.fail(RunStatus::failed,
                 formatted("the body is free: the supports do not hold node %d at (%.6g, %.6g, %.6g) in %c",
                           dof / 3 + 1, x[0], x[1], x[2], "xyz"[dof % 3]));
        return;
    }
    if (!factor.has_free_motion(system.border.K_rr)) return;
    std::string names;
    for (const RigidElement& element : job.model.rigid_elements)
        names += (names.empty() ? "" : ", ") + element.name;
    job.fail(RunStatus::failed,
             "the body is free: a motion of the rigid elements (" + names + ") meets no resistance");
}

// A relative residual above this is worth another solution.
constexpr double refined_above = 1e-9;
// Above this it is none: a factor file was altered while the run was at work, or the matrix leaves no digits.
constexpr double useless_above = 1e-2;

// F - K q into `out`, column by column; returns the largest ‖Kq - F‖ / ‖F‖.
double residuals(const Job& job, const AssembledSystem& system, std::span<const double> q,
                 std::span<const double> F, std::size_t columns, std::vector<double>& out) {
    const std::size_t n = system.equations();
    const auto k = static_cast<std::int32_t>(columns);
    out.resize(q.size());
    multiply(system.km, system.km.K_value, q, out, system.equations(), k, job.threads());
    multiply_border(system.border, system.border.K_fr, system.border.K_rr, q, out, k);
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = F[i] - out[i];
    double largest = 0;
    for (std::size_t c = 0; c < columns; ++c) {
        const double size = norm(F.subspan(c * n, n)), left = norm(std::span(out).subspan(c * n, n));
        largest = std::max(largest, size > 0 ? left / size : left);
    }
    return largest;
}

// Solves once more for what is left, and keeps that where it is better.
bool refine(Job& job, const AssembledSystem& system, BorderedFactor& factor, std::vector<double>& q,
            std::span<const double> F, std::vector<double> left, std::size_t columns) {
    if (!factor.solve(job, left, static_cast<std::int32_t>(columns))) return false;
    for (std::size_t k = 0; k < q.size(); ++k) left[k] += q[k];
    std::vector<double> after;
    const double before = job.report().residual, now = residuals(job, system, left, F, columns, after);
    if (now < before) {
        q = std::move(left);
        job.report().residual = now;
    }
    job.note(formatted("the relative residual was %.1e: one step of iterative refinement has made it %.1e",
                       before, job.report().residual));
    return true;
}

}  // namespace

bool solve_static(Job& job, const AssembledSystem& system, std::vector<double>& q, std::size_t columns,
                  BorderedFactor& factor) {
    if (!factor.factor(job, job.progress, system.km, system.km.K_value, system.border.K_fr,
                       system.border.K_rr))
        return false;
    job.clock.begin("solve");
    const std::vector<double> F = q;
    if (!factor.solve(job, q, static_cast<std::int32_t>(columns))) return false;
    job.report().negative_pivots = factor.negative_pivots();  // the solve may have taken another factor
    if (const std::string outcome = factor.free() ? factor.free()->outcome() : ""; !outcome.empty())
        job.report().solver += ", " + outcome;
    std::vector<double> left;
    job.report().residual = residuals(job, system, q, F, columns, left);
    if (!std::isfinite(norm(q)))
        return job.fail(RunStatus::failed, "the displacements are not finite numbers");
    check_held(job, system, factor);
    if (job.report().residual > refined_above && job.report().status == RunStatus::done &&
        !refine(job, system, factor, q, F, std::move(left), columns))
        return false;
    if (job.report().residual > useless_above && job.report().status == RunStatus::done)
        return job.fail(
            RunStatus::failed,
            formatted("the displacements leave %.2g of the loads without balance (|Ku-F|/|F|): the "
                      "matrix is too ill-conditioned, or the factor's files were altered",
                      job.report().residual));
    return true;
}

}  // namespace kestralum
