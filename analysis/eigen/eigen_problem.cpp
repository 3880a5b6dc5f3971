#include "analysis/eigen/eigen_problem.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "model/format.h"
#include "solver/ldl.h"
#include "solver/memory_limits.h"

namespace kestralum {

double frequency_of(double lambda) {
    return lambda > 0 ? std::sqrt(lambda) * 0.5 / eigen_pi : 0.0;
}

double lambda_of(double frequency) {
    return 4 * eigen_pi * eigen_pi * frequency * frequency;
}

EigenProblem::EigenProblem(Job& job, const AssembledSystem& system, std::unique_ptr<BorderedFactor> factor)
    : ShiftedPencil(job, system, std::move(factor)),
      mass_(km_, system.freedoms.numbering.free_dofs),
      couples_directions_(!system.freedoms.constraints.map.empty()) {
    for (const std::int32_t part : job.model.mesh.p_ele_part_id) {
        const Material& material = job.model.materials[job.model.parts[part].material_id];
        elastic_scale_ = std::max(elastic_scale_,
                                  material.young / material.density / std::pow(job.model.mesh.max_length, 2));
    }
    double stiffest = elastic_scale_;
    for (std::int32_t i = 0; i < n(); ++i) stiffest = std::max(stiffest, diagonal_k(i) / diagonal_m(i));
    rounding_ = 100 * std::numeric_limits<double>::epsilon() * stiffest;
}

void EigenProblem::keep_shift() {
    const std::string line = formatted(
        "the reference frequency of the second shift is nothing but rounding: the shift of %.6g Hz is kept",
        frequency_of(sigma()));
    progress().notice("%s", line.c_str());
    job_.note(line);
}

bool EigenProblem::shift(double sigma, bool with_frequency) {
    double tenth_of_a_hertz = lambda_of(0.1);
    for (int attempt = 0; attempt < 12; ++attempt) {
        progress().print("Shift K sparse\n");
        if (with_frequency)
            progress().print("  Shift frequency=%e[Hz]\n", std::sqrt(std::max(sigma, 0.0)) * 0.5 / eigen_pi);
        progress().print("Shift K sparse complete\n");
        if (!factor_shifted(sigma, progress())) return false;
        job_.clock.begin("iterate");
        if (pivots_sound()) return true;
        if (with_frequency && attempt < 2) {
            sigma = sigma * 1.001 + tenth_of_a_hertz * 1e-6;
        } else {
            tenth_of_a_hertz *= attempt == 2 && with_frequency ? 1 : 100;
            sigma = tenth_of_a_hertz;
        }
        const std::string line =
            formatted("a pivot of the shifted matrix is nothing but rounding: the shift is moved to %.6g Hz",
                      frequency_of(sigma));
        progress().notice("%s", line.c_str());
        job_.note(line);
    }
    return job_.fail(RunStatus::failed, "no shift makes the matrix of the eigenproblem sound");
}

bool EigenProblem::start_vector_through_w(std::vector<double>& start) {
    progress().print("LU M_sparse\n");
    // the bodies' part of the vector goes through the diagonal alone: it only has to reach every mode
    start.assign(n(), 1 / std::sqrt(static_cast<double>(n())));
    for (std::int32_t i = km_.rows(); i < n(); ++i) start[i] /= std::sqrt(diagonal_m(i));
    const auto* skyline = dynamic_cast<const SkylineFactor*>(factor_->free());
    if (!skyline) {  // without the profile of W its diagonal stands for it
        for (std::int32_t i = 0; i < km_.rows(); ++i) start[i] /= std::sqrt(diagonal_m(i));
        progress().print("LU M_sparse complete\n");
        return true;
    }
    job_.clock.begin("factor");
    ++report().factorizations;
    const SkylineFactor& like = *skyline;
    const std::span<double> free = std::span(start).first(km_.rows());
    if (couples_directions_) return start_through_whole_w(like, free);
    W_ = std::make_unique<MassFactor>(mass_, like.profile(), like.divisions(), like.options());
    // a ninth of a whole factor, like [K] itself beyond the budget for panels, so that this does not show in
    // the result
    if (W_->megabytes() > machine_megabytes()) return start_through_whole_w(like, free);
    const auto fail = [&](const char* what) { return job_.fail(RunStatus::failed, what + W_->error()); };
    const FactorStatus status = W_->factor(progress());
    if (status == FactorStatus::cancelled) return job_.goes_on();
    if (status != FactorStatus::ok) return fail("the factorization of [M] cannot go on: ");
    progress().print("LU M_sparse complete\n");
    progress().print("s_L:%ld\n", like.profile().Ls_num);
    job_.clock.begin("iterate");
    return W_->solve_wt(free) || fail("the solution with W cannot go on: ");
}

// Through the factor of all of [M], whose rows are read back from its files.
bool EigenProblem::start_through_whole_w(const SkylineFactor& like, std::span<double> start) {
    W_.reset();
    FactorOptions options = like.options();
    options.file_stem = mass_stem;
    options.write_last = false;
    SkylineFactor W(like.profile(), like.divisions(), options);
    const auto fail = [&](const char* what) { return job_.fail(RunStatus::failed, what + W.error()); };
    const FactorStatus status = W.factor_ww(km_, km_.M_value, progress());
    if (status == FactorStatus::cancelled) return job_.goes_on();
    if (status != FactorStatus::ok) return fail("the factorization of [M] cannot go on: ");
    progress().print("LU M_sparse complete\n");
    progress().print("s_L:%ld\n", W.profile().Ls_num);
    job_.clock.begin("iterate");
    return W.solve_wt(start) || fail("the solution with W cannot go on: ");
}

bool EigenProblem::await_files() {
    if (!ShiftedPencil::await_files()) return false;
    const FactorStatus status = W_ ? W_->await_files() : FactorStatus::ok;
    if (status == FactorStatus::cancelled) return job_.goes_on();
    return status == FactorStatus::ok ||
           job_.fail(RunStatus::failed, "the factorization of [M] cannot go on: " + W_->error());
}

void EigenProblem::multiply_m(std::span<const double> x, std::span<double> y, std::int32_t k) {
    if (couples_directions_) return ShiftedPencil::multiply_m(x, y, k);
    mass_.multiply(x, y, n(), k, job_.threads());
    multiply_border(border_, border_.M_fr, border_.M_rr, x, y, k);
}

double reference_frequency(std::span<const double> lambda, const EigenOptions& options, double rounding) {
    const std::size_t index = options.rigid;
    if (index >= lambda.size() || lambda[index] <= rounding) return 0;
    return frequency_of(lambda[index]);
}

}  // namespace kestralum
