#include "solver/padded_equations.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "model/format.h"
#include "solver/block_kernels.h"

namespace kestralum {

PaddedEquations pad(std::span<const std::int32_t> dof) {
    PaddedEquations out;
    for (std::size_t e = 0; e < dof.size(); ++e) {
        if (out.node.empty() || out.node.back() != dof[e] / 3) {
            out.node.push_back(dof[e] / 3);
            out.first.push_back(static_cast<std::int32_t>(e));
        }
        out.place.push_back(3 * (out.rows() - 1) + dof[e] % 3);
    }
    out.first.push_back(static_cast<std::int32_t>(dof.size()));
    return out;
}

BlockPattern pattern_of(const SparseKM& km, const PaddedEquations& equations, RowTeam& team) {
    return make_pattern(equations.rows(), equations.rows(), team, [&](std::int32_t i, const auto& take) {
        for (std::int32_t e = equations.first[i]; e < equations.first[i + 1]; ++e)
            for (std::int64_t k = km.row_start[e]; k < km.row_start[e] + km.row_count[e]; ++k)
                take(equations.place[km.col_index[k]] / 3);
    });
}

std::vector<char> find_whole(const SparseKM& km, const PaddedEquations& equations, RowTeam& team) {
    std::vector<char> whole(equations.rows(), 0);
    team.rows(equations.rows(), [&](std::int64_t first, std::int64_t last, int) {
        for (std::int64_t i = first; i < last; ++i) {
            const std::int32_t e = equations.first[i], count = km.row_count[e];
            bool all = equations.first[i + 1] == e + 3 && count % 3 == 0;
            for (std::int32_t r = e; r < e + 3 && all; ++r) {
                all = km.row_count[r] == count &&
                      km.row_start[r] == km.row_start[e] + std::int64_t{r - e} * count;
                const std::int32_t* col = km.col_index.data() + km.row_start[r];
                for (std::int32_t k = 0; k < count && all; ++k)
                    all = col[k] == km.col_index[km.row_start[e] + k / 3 * 3] + k % 3;
            }
            whole[i] = all;
        }
    });
    return whole;
}

namespace {

// y = rows of `count` blocks of three columns, one row behind the other, times x; `col` is the first one's.
void multiply_three_rows(const double* rows, const std::int32_t* col, std::int64_t count, const double* x,
                         double* y) {
    const double* row[] = {rows, rows + 3 * count, rows + 6 * count};
    TwoDoubles pair[3] = {}, a, from;  // of columns 0 and 1 of each block
    double last[3] = {};
    for (std::int64_t k = 0; k < 3 * count; k += 3) {
        const double* at = x + col[k];
        std::memcpy(&from, at, sizeof from);
        for (int r = 0; r < 3; ++r) {
            std::memcpy(&a, row[r] + k, sizeof a);
            pair[r] += a * from;
            last[r] += row[r][k + 2] * at[2];
        }
    }
    for (int r = 0; r < 3; ++r) y[r] = pair[r][0] + pair[r][1] + last[r];
}

}  // namespace

void load_row(const SparseKM& km, std::span<const double> values, const PaddedEquations& equations,
              const BlockPattern& pattern, std::int32_t i, double* to) {
    const std::int32_t* col = pattern.col.data() + pattern.start[i];
    std::fill_n(to, pattern.count(i) * 9, 0.0);
    for (std::int32_t e = equations.first[i]; e < equations.first[i + 1]; ++e) {
        const int r = equations.place[e] % 3;
        std::int64_t q = 0;
        for (std::int64_t k = km.row_start[e]; k < km.row_start[e] + km.row_count[e]; ++k) {
            const std::int32_t place = equations.place[km.col_index[k]];
            while (col[q] < place / 3) ++q;
            to[q * 9 + place % 3 * 3 + r] = values[k];
        }
    }
}

std::vector<double> rigid_motions(const PaddedEquations& equations, std::span<const double> coordinates,
                                  const std::vector<char>& live) {
    const std::size_t rows = equations.rows();
    double middle[3] = {}, size = 0;
    for (const std::size_t n : equations.node)
        for (std::size_t d = 0; d < 3; ++d) middle[d] += coordinates[3 * n + d] / static_cast<double>(rows);
    for (const std::size_t n : equations.node)
        for (std::size_t d = 0; d < 3; ++d)
            size = std::max(size, std::abs(coordinates[3 * n + d] - middle[d]));
    std::vector<double> N(rows * 18, 0.0);
    for (std::size_t i = 0; i < rows; ++i) {
        double x[3];
        for (std::size_t d = 0; d < 3; ++d)
            x[d] = size > 0 ? (coordinates[3 * std::size_t(equations.node[i]) + d] - middle[d]) / size : 0.0;
        const double turn[3][3] = {{0, x[2], -x[1]}, {-x[2], 0, x[0]}, {x[1], -x[0], 0}};
        for (std::size_t d = 0; d < 3; ++d) {
            if (!live[3 * i + d]) continue;
            double* row = &N[(3 * i + d) * motions];
            row[d] = 1;
            std::copy_n(turn[d], 3, row + 3);
        }
    }
    return N;
}

namespace {

bool all_finite(std::span<const double> values, RowTeam& team) {
    std::atomic<bool> all{true};
    team.rows(
        static_cast<std::int64_t>(values.size()),
        [&](std::int64_t first, std::int64_t last, int) {
            double nothing = 0;  // 0 v is not 0 where v is no number or infinite
            for (std::int64_t k = first; k < last; ++k) nothing += 0 * values[k];
            if (!(nothing == 0)) all = false;
        },
        1 << 16);
    return all;
}

}  // namespace

std::string find_fault(const SparseKM& km, std::span<const double> values, const EquationPlaces& places,
                       RowTeam& team) {
    if (places.dof.size() != std::size_t(km.rows()) || values.size() != std::size_t(km.entries()))
        return formatted("a matrix of %d equations and %ld values comes with %zu places and %zu values",
                         km.rows(), static_cast<long>(km.entries()), places.dof.size(), values.size());
    for (std::size_t e = 0; e < places.dof.size(); ++e) {
        const std::int64_t dof = places.dof[e];
        if (dof < 0 || (e > 0 && dof <= places.dof[e - 1]) ||
            std::size_t(dof) / 3 * 3 + 3 > places.coordinates.size())
            return formatted("equation %zu has no place", e);
    }
    if (!all_finite(values, team)) return "the matrix has entries that are no numbers";
    if (!all_finite(places.coordinates, team)) return "a node's coordinates are no numbers";
    return {};
}

void multiply(const SparseKM& km, std::span<const double> values, const PaddedEquations& equations,
              std::span<const double> x, std::span<double> y, RowTeam& team) {
    team.rows(equations.rows(), [&](std::int64_t first, std::int64_t last, int) {
        const std::int32_t* col = km.col_index.data();
        for (std::int64_t i = first; i < last; ++i) {
            const std::int32_t e = equations.first[i];
            const std::int64_t row = km.row_start[e], count = km.row_count[e];
            if (equations.whole[i]) {
                multiply_three_rows(values.data() + row, col + row, count / 3, x.data(), &y[e]);
                continue;
            }
            for (std::int32_t r = e; r < equations.first[i + 1]; ++r) {
                double sum = 0;
                for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k)
                    sum += values[k] * x[col[k]];
                y[r] = sum;
            }
        }
    });
}

void multiply_absolute(const SparseKM& km, std::span<const double> values, std::span<const double> x,
                       std::span<double> y, RowTeam& team) {
    team.rows(
        km.rows(),
        [&](std::int64_t first, std::int64_t last, int) {
            for (std::int64_t r = first; r < last; ++r) {
                double sum = 0;
                for (std::int64_t k = km.row_start[r]; k < km.row_start[r] + km.row_count[r]; ++k)
                    sum += std::abs(values[k] * x[km.col_index[k]]);
                y[r] = sum;
            }
        },
        1024);
}

}  // namespace kestralum
