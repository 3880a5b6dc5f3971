#include "analysis/eigen/recurrence.h"

#include <jama/jama_eig.h>

#include <algorithm>
#include <cmath>

#include "solver/dense_eigen.h"
#include "solver/sparse.h"

namespace kestralum {

std::int32_t block_width(ShiftedPencil& problem) {
    // A factor of more entries than this stays in no cache: a solve takes as long as reading it does, and one
    // of eight columns less than twice that.
    constexpr std::int64_t entries_in_caches = 2'000'000;
    constexpr std::int32_t width = 8;
    // who asks for the skyline gets the recurrence of single vectors with it
    const bool blocks =
        problem.factor_entries() > entries_in_caches && problem.job().settings.solver != "skyline";
    return std::min(blocks ? width : 1, problem.n());
}

Recurrence::Recurrence(ShiftedPencil& problem, std::span<const double> found, std::int32_t room,
                       std::int32_t widest)
    : problem_(problem),
      basis_(problem, widest),
      found_(static_cast<std::int32_t>(found.size() / problem.n())) {
    basis_.reserve(found_ + std::min(room + widest, problem.n()));
    basis_.append(found);
}

bool Recurrence::start(std::span<const double> block) {
    const auto n = static_cast<std::size_t>(problem_.n());
    // the first column by itself, so that it is the first vector
    return basis_.add(block.first(n)) && basis_.add(block.subspan(n)) && begin_block(found_) > 0;
}

// The vectors from `first` on are the block that the operator comes to next; their number.
std::int32_t Recurrence::begin_block(std::int32_t first) {
    const std::int32_t width = basis_.count() - first;
    const std::size_t size = std::size_t(problem_.n()) * width;
    MV_.resize(size);
    if (width > 0) problem_.multiply_m({basis_.vector(first), size}, MV_, width);
    return width;
}

bool Recurrence::step() {
    const std::int32_t first = found_ + steps_, width = basis_.count() - first;
    const std::span<const double> V{basis_.vector(first), MV_.size()};
    if (!problem_.operate(V, MV_, W_, width)) return false;
    problem_.multiply_m(W_, MV_, width);
    if (!basis_.add(W_, MV_)) return false;
    std::vector<double> C;  // [V, next]ᵀ M W
    if (!basis_.products(first, MV_, C)) return false;
    Block block{first - found_, width, basis_.count() - first - width, {}, {}};
    block.A.resize(std::size_t(width) * width);
    for (std::int32_t j = 0; j < width; ++j) {
        const auto at = [&](std::int32_t i, std::int32_t k) {
            return C[std::size_t(k) * (width + block.next) + i];
        };
        for (std::int32_t i = 0; i < width; ++i) block.A[j * width + i] = 0.5 * (at(i, j) + at(j, i));
        for (std::int32_t i = width; i < width + block.next; ++i) block.R.push_back(at(i, j));
    }
    blocks_.push_back(std::move(block));
    steps_ += width;
    exhausted_ = begin_block(first + width) == 0 || found_ + steps_ >= problem_.n();
    return true;
}

// R s of the last block, for coordinates of all vectors.
std::vector<double> Recurrence::last_coupling(std::span<const double> s) const {
    const Block& last = blocks_.back();
    std::vector<double> out(last.next, 0.0);
    for (std::int32_t j = 0; j < last.width; ++j)
        for (std::int32_t i = 0; i < last.next; ++i)
            out[i] += last.R[std::size_t(j) * last.next + i] * s[last.first + j];
    return out;
}

Tridiagonal Recurrence::tridiagonal() const {
    Tridiagonal out;
    const std::size_t m = steps_;
    if (std::ranges::all_of(blocks_, [](const Block& block) { return block.width == 1; })) {
        for (const Block& block : blocks_) {
            out.alpha.push_back(block.A[0]);
            out.beta.push_back(block.R.empty() ? 0.0 : block.R[0]);
        }
        return out;
    }
    out.U.assign(m * m, 0.0);
    for (const Block& block : blocks_)
        for (std::int32_t j = 0; j < block.width; ++j) {
            double* column = &out.U[(block.first + j) * m + block.first];
            std::copy_n(&block.A[std::size_t(j) * block.width], block.width, column);
            if (&block != &blocks_.back())
                std::copy_n(&block.R[std::size_t(j) * block.next], block.next, column + block.width);
        }
    tridiagonalise(steps_, out.U, out.alpha, out.beta);
    out.beta.push_back(norm(last_coupling(std::span(out.U).last(m))));
    return out;
}

std::vector<Ritz> Recurrence::ritz() const {
    const std::int32_t m = steps_;
    if (m == 0) return {};  // the run found nothing to start from
    const Tridiagonal t = tridiagonal();
    TNT::Array2D<double> T(m, m, 0.0);
    for (std::int32_t j = 0; j < m; ++j) {
        T[j][j] = t.alpha[j];
        if (j + 1 < m) T[j][j + 1] = T[j + 1][j] = t.beta[j];
    }
    JAMA::Eigenvalue<double> eigen(T);
    TNT::Array1D<double> values;
    TNT::Array2D<double> S;
    eigen.getRealEigenvalues(values);
    eigen.getV(S);
    std::vector<Ritz> out(m);
    for (std::int32_t j = 0; j < m; ++j) {
        Ritz& ritz = out[j];
        ritz.theta = values[j];
        ritz.s.assign(m, 0.0);
        if (t.U.empty())
            for (std::int32_t i = 0; i < m; ++i) ritz.s[i] = S[i][j];
        else
            for (std::int32_t k = 0; k < m; ++k)
                for (std::int32_t i = 0; i < m; ++i) ritz.s[i] += t.U[std::size_t(k) * m + i] * S[k][j];
        ritz.residual = norm(last_coupling(ritz.s)) / std::abs(values[j]);
    }
    return out;
}

bool Recurrence::vectors(std::span<const Ritz> pairs, std::vector<double>& out) {
    std::vector<double> S;
    for (const Ritz& ritz : pairs) {
        S.insert(S.end(), ritz.s.begin(), ritz.s.end());
        S.resize(S.size() + basis_.count() - found_ - steps_, 0.0);  // of vectors not yet gone through
    }
    return basis_.combine(found_, S, static_cast<std::int32_t>(pairs.size()), out);
}

}  // namespace kestralum
