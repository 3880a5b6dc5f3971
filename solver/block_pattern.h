// Sparse matrices of small dense blocks: patterns and how they are made.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <vector>

#include "solver/row_team.h"

namespace kestralum {

inline constexpr int motions = 6;  // of a rigid body

// Row i holds blocks start[i] … start[i + 1] - 1 with ascending columns.
struct BlockPattern {
    std::vector<std::int64_t> start{0};  // rows + 1
    std::vector<std::int32_t> col;       // blocks
    std::int32_t columns = 0;

    std::int32_t rows() const { return static_cast<std::int32_t>(start.size() - 1); }
    std::int64_t blocks() const { return static_cast<std::int64_t>(col.size()); }
    std::int64_t count(std::int64_t row) const { return start[row + 1] - start[row]; }
};

// `count` zeros. Memory is taken and cleared in steps of a twentieth of a second, between which the team may
// give up: false, with fewer.
template <typename Value>
bool set_zero(std::vector<Value>& values, std::int64_t count, RowTeam& team) {
    constexpr std::size_t step = 1 << 23;
    values.clear();
    values.reserve(count);
    while (values.size() < std::size_t(count)) {
        if (!team.goes_on()) return false;
        values.resize(std::min<std::size_t>(count, values.size() + step));
    }
    return true;
}

// The pattern whose row i holds the columns that visit(i, take) hands to take(column), each as often as it
// likes. Not whole where the team gives up.
template <typename Visit>
BlockPattern make_pattern(std::int32_t rows, std::int32_t columns, RowTeam& team, const Visit& visit) {
    BlockPattern out;
    out.columns = columns;
    out.start.assign(std::size_t(rows) + 1, 0);
    // last row that took each column; ~row on the second pass
    std::vector<std::vector<std::int32_t>> marks(team.threads());
    for (auto& mark : marks) mark.assign(columns, std::numeric_limits<std::int32_t>::max());
    const bool counted = team.rows(rows, [&](std::int64_t first, std::int64_t last, int thread) {
        std::int32_t* mark = marks[thread].data();
        for (auto i = static_cast<std::int32_t>(first); i < last; ++i) {
            std::int64_t n = 0;
            visit(i, [&](std::int32_t c) {
                if (mark[c] != i) mark[c] = i, ++n;
            });
            out.start[i + 1] = n;
        }
    });
    if (!counted) std::fill(out.start.begin(), out.start.end(), 0);
    for (std::int32_t i = 0; i < rows; ++i) out.start[i + 1] += out.start[i];
    if (!set_zero(out.col, out.start.back(), team) || !counted) return out;
    team.rows(rows, [&](std::int64_t first, std::int64_t last, int thread) {
        std::int32_t* mark = marks[thread].data();
        for (auto i = static_cast<std::int32_t>(first); i < last; ++i) {
            std::int32_t* to = out.col.data() + out.start[i];
            visit(i, [&](std::int32_t c) {
                if (mark[c] != ~i) mark[c] = ~i, *to++ = c;
            });
            std::sort(out.col.data() + out.start[i], to);
        }
    });
    return out;
}

// Where the blocks of each column stand: column c is held by rows row[k] at blocks entry[k], start[c] <= k <
// start[c + 1], rows ascending.
struct ColumnLists {
    std::vector<std::int64_t> start;  // columns + 1
    std::vector<std::int32_t> row;    // blocks
    std::vector<std::int64_t> entry;  // blocks
};
ColumnLists list_columns(const BlockPattern& pattern);

template <typename Value>
double megabytes_of(const std::vector<Value>& values) {
    return 1e-6 * static_cast<double>(values.capacity() * sizeof(Value));
}

}  // namespace kestralum
