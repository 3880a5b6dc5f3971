// The kernels of solve_kernel.h for one set of instructions. KESTRALUM_SOLVE_SET: its name;
// KESTRALUM_SOLVE_ROWS: rows taken together, as many as the registers hold.
#include <algorithm>

#include "solver/solve_kernel.h"

namespace kestralum::solve {

namespace {

using Eight = double __attribute__((vector_size(64), aligned(8), may_alias));

template <int groups>
struct Value {
    Eight part[groups];
};

// Columns [begin, end) of `rows` rows, all of which reach them.
template <int groups, int rows>
inline void products(const double* const* row, std::int32_t begin, std::int32_t end, const double* x,
                     Value<groups>* sum) {
    for (std::int32_t c = begin; c < end; ++c) {
        const auto* from = reinterpret_cast<const Eight*>(x + std::int64_t{c} * 8 * groups);
        for (int g = 0; g < groups; ++g) {
            const Eight value = from[g];
            for (int r = 0; r < rows; ++r) sum[r].part[g] += row[r][c] * value;
        }
    }
}

template <int groups, int rows>
inline void subtract_rows(const FactorRows& L, std::int32_t row, std::int32_t begin, std::int32_t end,
                          double* x) {
    const double* at[rows];  // of column 0
    Value<groups> sum[rows] = {};
    std::int32_t common = begin;
    for (int r = 0; r < rows; ++r) {
        at[r] = L.at[row + r] - L.first[row + r];
        common = std::max(common, std::min(end, L.first[row + r]));
    }
    for (int r = 0; r < rows; ++r)
        products<groups, 1>(at + r, std::max(begin, L.first[row + r]), common, x, sum + r);
    products<groups, rows>(at, common, end, x, sum);
    auto* own = reinterpret_cast<Eight*>(x + std::int64_t{row} * 8 * groups);
    for (int r = 0; r < rows; ++r)
        for (int g = 0; g < groups; ++g) own[r * groups + g] -= sum[r].part[g];
}

template <int groups>
void subtract_products(const FactorRows& L, std::int32_t row, std::int32_t rows, std::int32_t begin,
                       std::int32_t end, double* x) {
    constexpr int together = KESTRALUM_SOLVE_ROWS;
    const std::int32_t last = row + rows;
    for (; row + together <= last; row += together) subtract_rows<groups, together>(L, row, begin, end, x);
    for (; row < last; ++row) subtract_rows<groups, 1>(L, row, begin, end, x);
}

template <int groups, int rows>
inline void subtract_columns(const FactorRows& L, std::int32_t row, std::int32_t begin, std::int32_t end,
                             double* x) {
    const double* at[rows];
    Value<groups> own[rows];
    std::int32_t common = begin;
    for (int r = 0; r < rows; ++r) {
        at[r] = L.at[row + r] - L.first[row + r];
        common = std::max(common, std::min(end, L.first[row + r]));
        const auto* from = reinterpret_cast<const Eight*>(x + std::int64_t{row + r} * 8 * groups);
        for (int g = 0; g < groups; ++g) own[r].part[g] = from[g];
    }
    for (int r = 0; r < rows; ++r)
        for (std::int32_t c = std::max(begin, L.first[row + r]); c < common; ++c) {
            auto* to = reinterpret_cast<Eight*>(x + std::int64_t{c} * 8 * groups);
            for (int g = 0; g < groups; ++g) to[g] -= at[r][c] * own[r].part[g];
        }
    for (std::int32_t c = common; c < end; ++c) {
        auto* to = reinterpret_cast<Eight*>(x + std::int64_t{c} * 8 * groups);
        for (int g = 0; g < groups; ++g) {
            Eight value = to[g];
            for (int r = 0; r < rows; ++r) value -= at[r][c] * own[r].part[g];
            to[g] = value;
        }
    }
}

template <int groups>
void subtract_from_columns(const FactorRows& L, std::int32_t row, std::int32_t rows, std::int32_t begin,
                           std::int32_t end, double* x) {
    constexpr int together = KESTRALUM_SOLVE_ROWS;
    const std::int32_t last = row + rows;
    for (; row + together <= last; row += together) subtract_columns<groups, together>(L, row, begin, end, x);
    for (; row < last; ++row) subtract_columns<groups, 1>(L, row, begin, end, x);
}

}  // namespace

const SolveKernels KESTRALUM_SOLVE_SET[2] = {{subtract_products<1>, subtract_from_columns<1>},
                                             {subtract_products<2>, subtract_from_columns<2>}};

}  // namespace kestralum::solve
