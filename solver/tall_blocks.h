// Dense algebra on blocks of a few long columns (n × k, column after column), in BLAS level 3 on fixed blocks
// of rows, so that the bytes do not depend on the threads.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "solver/row_team.h"

namespace kestralum {

// Every function is false where the team has ended, and its result then without meaning. Small matrices are
// column-major without gaps.
class TallBlocks {
public:
    // Blocks of n rows, of at most `widest` columns. May throw std::bad_alloc, as may gram().
    TallBlocks(std::int64_t n, std::int32_t widest, RowTeam& team);

    // out = Aᵀ B, a × b.
    bool gram(const double* A, std::int32_t a, const double* B, std::int32_t b, std::span<double> out);

    // The first v columns of W := (W - B G) V in place, v <= w; G is b × w, V w × v.
    bool project(const double* B, std::int32_t b, std::span<const double> G, double* W, std::int32_t w,
                 std::span<const double> V, std::int32_t v);
    // The first c columns of A := A C, c <= a.
    bool combine(double* A, std::int32_t a, std::span<const double> C, std::int32_t c) {
        return project(nullptr, 0, {}, A, a, C, c);
    }

    // The columns that `chosen` names, ascending, become the first ones of A.
    bool choose(double* A, std::span<const std::int32_t> chosen);

    // Σ over rows of the values that row(i, sums) adds to its `count` sums.
    template <typename Row>
    bool sum_rows(std::int32_t count, std::span<double> out, const Row& row) {
        partial_.assign(std::size_t(pieces_) * count, 0.0);
        team_.rows(
            n_,
            [&](std::int64_t first, std::int64_t last, int) {
                double* sums = &partial_[first / piece_ * count];
                for (std::int64_t i = first; i < last; ++i) {
                    if ((i - first) % rows_at_once == 0 && !team_.goes_on()) return;
                    row(i, sums);
                }
            },
            piece_);
        return add_pieces(count, out);
    }

private:
    static constexpr std::int64_t rows_at_once = 512;
    bool add_pieces(std::int64_t count, std::span<double> out);

    const std::int64_t n_;
    const std::int32_t widest_;
    RowTeam& team_;
    std::int64_t piece_, pieces_;  // rows of a piece: by n alone
    std::vector<double> room_;     // threads × rows_at_once × widest
    std::vector<double> partial_;  // pieces × sums
};

}  // namespace kestralum
