// The matrix of the level below, Pᵀ A P. Of solver/multigrid_levels.cpp alone.
#pragma once

#include <algorithm>
#include <vector>

#include "solver/block_kernels.h"
#include "solver/multigrid_levels.h"

namespace kestralum {

// Columns of one row and where they stand in it; one table for each thread.
class PlaceTable {
public:
    explicit PlaceTable(std::int32_t columns) : place_(columns) {}
    void set(const BlockPattern& pattern, std::int64_t row) {
        const std::int32_t* col = pattern.col.data() + pattern.start[row];
        for (std::int32_t q = 0; q < pattern.count(row); ++q) place_[col[q]] = q;
    }
    std::int64_t operator[](std::int32_t column) const { return place_[column]; }

private:
    std::vector<std::int32_t> place_;
};

// By slabs of rows of A: those of A P, then what they add to each row below, in
// ascending order of the slabs and of the rows in them.
template <int B>
class Galerkin {
public:
    Galerkin(const LevelMatrix<B>& from, const Level<B>& level, RowTeam& team)
        : from_(from), level_(level), team_(team) {}

    // The pattern of Pᵀ A P; keeps that of A P.
    BlockPattern pattern() {
        const BlockPattern &A = level_.pattern, &P = level_.p_pattern;
        AP_ = make_pattern(A.rows(), P.columns, team_, [&](std::int32_t i, const auto& take) {
            for (std::int64_t q = A.start[i]; q < A.start[i + 1]; ++q)
                for (std::int64_t p = P.start[A.col[q]]; p < P.start[A.col[q] + 1]; ++p) take(P.col[p]);
        });
        const ColumnLists& lists = level_.p_columns;
        if (team_.ended() != RowTeam::Ended::no) return {};
        return make_pattern(P.columns, P.columns, team_, [&](std::int32_t k, const auto& take) {
            for (std::int64_t e = lists.start[k]; e < lists.start[k + 1]; ++e)
                for (std::int64_t q = AP_.start[lists.row[e]]; q < AP_.start[lists.row[e] + 1]; ++q)
                    take(AP_.col[q]);
        });
    }

    // Blocks of `below`, the pattern above; not whole where the team gives up.
    std::vector<double> values(const BlockPattern& below) {
        constexpr std::int32_t slab = 8192;
        std::vector<double> out;
        if (!set_zero(out, below.blocks() * motions * motions, team_)) return out;
        places_.assign(team_.threads(), PlaceTable(below.columns));
        next_.assign(level_.p_columns.start.begin(), level_.p_columns.start.end() - 1);
        for (std::int32_t first = 0; first < level_.nodes() && team_.goes_on(); first += slab) {
            const std::int32_t last = std::min(first + slab, level_.nodes());
            multiply_slab(first, last);
            add_slab(first, last, below, out);
        }
        return out;
    }

private:
    static constexpr int p_block = B * motions;

    void multiply_slab(std::int32_t first, std::int32_t last) {
        const BlockPattern &A = level_.pattern, &P = level_.p_pattern;
        product_.assign((AP_.start[last] - AP_.start[first]) * p_block, 0.0);
        const auto work = [&](std::int64_t begin, std::int64_t end, int thread) {
            std::vector<double> buffer;
            PlaceTable& place = places_[thread];
            for (auto i = static_cast<std::int32_t>(first + begin); i < first + end; ++i) {
                buffer.resize(A.count(i) * B * B);
                const double* row = from_.load(A, i, buffer.data());
                place.set(AP_, i);
                double* to = product_.data() + (AP_.start[i] - AP_.start[first]) * p_block;
                for (std::int64_t q = 0; q < A.count(i); ++q) {
                    const std::int64_t j = A.col[A.start[i] + q];
                    for (std::int64_t p = P.start[j]; p < P.start[j + 1]; ++p) {
                        double* z = to + place[P.col[p]] * p_block;
                        const float* b = &level_.P[p * p_block];
                        for (int m = 0; m < motions; ++m) {
                            double x[B];
                            for (int c = 0; c < B; ++c) x[c] = b[m * B + c];
                            add_product<B, B, 1>(row + q * B * B, x, z + m * B);
                        }
                    }
                }
            }
        };
        team_.rows(last - first, work, B == 3 ? 256 : 32);
    }

    void add_slab(std::int32_t first, std::int32_t last, const BlockPattern& below,
                  std::vector<double>& out) {
        const ColumnLists& lists = level_.p_columns;
        const auto work = [&](std::int64_t begin, std::int64_t end, int thread) {
            PlaceTable& place = places_[thread];
            for (std::int64_t k = begin; k < end; ++k) {
                if (next_[k] == lists.start[k + 1] || lists.row[next_[k]] >= last) continue;
                place.set(below, k);
                double* to = out.data() + below.start[k] * motions * motions;
                for (; next_[k] < lists.start[k + 1] && lists.row[next_[k]] < last; ++next_[k]) {
                    double pt[p_block];  // Pᵀ of the entry: motions × B, column-major
                    const float* p = &level_.P[lists.entry[next_[k]] * p_block];
                    for (int r = 0; r < B; ++r)
                        for (int m = 0; m < motions; ++m) pt[r * motions + m] = p[m * B + r];
                    const std::int64_t i = lists.row[next_[k]];
                    const double* x = product_.data() + (AP_.start[i] - AP_.start[first]) * p_block;
                    for (std::int64_t q = AP_.start[i]; q < AP_.start[i + 1]; ++q, x += p_block) {
                        double* z = to + place[AP_.col[q]] * motions * motions;
                        for (int m = 0; m < motions; ++m)
                            add_product<motions, B, 1>(pt, x + m * B, z + m * motions);
                    }
                }
            }
        };
        team_.rows(below.rows(), work, 16);
    }

    const LevelMatrix<B>& from_;
    const Level<B>& level_;
    RowTeam& team_;
    BlockPattern AP_;
    std::vector<double> product_;  // blocks of A P in the slab
    std::vector<PlaceTable> places_;
    std::vector<std::int64_t> next_;  // columns of P: first entry that no slab has had
};

}  // namespace kestralum
