#include "analysis/eigen/basis.h"

#include <algorithm>

#include "solver/mass_orthonormal.h"

namespace kestralum {

Basis::Basis(ShiftedPencil& problem, std::int32_t widest)
    : problem_(problem),
      n_(problem.n()),
      team_(problem.job().threads(), &problem.progress()),
      tall_(problem.n(), widest, team_),
      room_(n_ * widest) {}

bool Basis::add(std::span<const double> block, std::span<const double> product) {
    const std::int32_t before = count();
    V_.insert(V_.end(), block.begin(), block.end());
    auto columns = static_cast<std::int32_t>(block.size() / n_);
    const BlockOperator multiply_m = [this](std::span<const double> x, std::span<double> y, std::int32_t k) {
        problem_.multiply_m(x, y, k);
        return team_.goes_on() ? SolveStatus::ok : SolveStatus::cancelled;
    };
    std::ranges::copy(product, room_.begin());
    const SolveStatus status =
        orthonormalise({multiply_m, problem_.n(), room_.data(), tall_, !product.empty()}, V_.data(), before,
                       V_.data() + std::size_t(before) * n_, columns);
    if (status == SolveStatus::not_positive || status == SolveStatus::bad_input)
        return problem_.job().fail(RunStatus::failed, "the vectors of the eigenproblem are not finite");
    V_.resize((before + columns) * n_);
    return problem_.outcome(team_);
}

bool Basis::products(std::int32_t first, std::span<const double> B, std::vector<double>& C) {
    const auto a = count() - first, b = static_cast<std::int32_t>(B.size() / n_);
    C.assign(std::size_t(a) * b, 0.0);
    return tall_.gram(vector(first), a, B.data(), b, C) || problem_.outcome(team_);
}

bool Basis::combine(std::int32_t first, std::span<const double> S, std::int32_t k, std::vector<double>& out) {
    const std::int32_t columns = count() - first;
    out.clear();
    if (k == 0) return true;
    double* V = V_.data() + std::size_t(first) * n_;
    TallBlocks tall(problem_.n(), columns, team_);
    if (!tall.combine(V, columns, S, k)) return problem_.outcome(team_);
    out.assign(V, V + std::size_t(k) * n_);
    V_.clear();
    return true;
}

}  // namespace kestralum
