// The analysis of a pattern for a multifrontal factorization: an order of elimination with little fill, and
// the tree of dense fronts in which it proceeds.
//
// Neighbouring equations with the same pattern (the directions of a node) form a group; METIS orders the
// graph of groups by nested dissection (Karypis and Kumar, SIAM J. Sci. Comput. 20, 1998). Elimination tree
// after Liu (SIAM J. Matrix Anal. Appl. 11, 1990), column counts after Gilbert, Ng and Peyton (same journal
// 15, 1994), relaxed supernodes after Ashcraft and Grimes (ACM Trans. Math. Softw. 15, 1989), children
// ordered for a small stack after Liu (ACM Trans. Math. Softw. 12, 1986).
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "solver/sparse.h"

namespace kestralum {

// "Position" is an equation's place in the order of elimination.
struct Front {
    std::int32_t first = 0;    // position of its first column
    std::int32_t columns = 0;  // positions first … first + columns - 1 are eliminated here
    std::int32_t rows = 0;     // columns and update rows
    std::int32_t parent = -1;
    std::int32_t first_descendant = 0;  // its subtree is the fronts from this one to itself
    std::int32_t first_group = 0;       // its columns' groups: first_group … those of the next front
    std::int64_t update = 0;            // start of its update rows in update_rows
    std::int64_t panel = 0;             // doubles of the panels before its own
    double work = 0, subtree_work = 0;  // multiplications and additions

    std::int32_t update_count() const { return rows - columns; }
};

// Where a group's row of the matrix goes in a front: `size` entries from `offset` of the row on become rows
// `row` … of the front.
struct ScatterBlock {
    std::int32_t offset, row, size;
};

// Rows from … from + count - 1 of a child's update matrix are rows to … of its parent's front.
struct RowRun {
    std::int32_t from, to, count;
};

struct FrontTree {
    std::vector<std::int32_t> equation;       // positions: the equation eliminated there
    std::vector<Front> fronts;                // children before parents
    std::vector<std::int32_t> child_start;    // fronts + 1
    std::vector<std::int32_t> children;       // of each front, ascending
    std::vector<std::int32_t> update_rows;    // positions, ascending within a front
    std::vector<std::int64_t> run_start;      // fronts + 1
    std::vector<RowRun> runs;                 // of each front's update rows, ascending
    std::vector<std::int32_t> group_start;    // groups in the order of elimination + 1: first position
    std::vector<std::int64_t> scatter_start;  // groups + 1
    std::vector<ScatterBlock> scatter;
    std::int64_t entries = 0;        // of L, its diagonal included
    std::int64_t panel_doubles = 0;  // of all panels
    std::int64_t largest_panel = 0;  // doubles
    std::int64_t stack_doubles = 0;  // largest sum of the update matrices alive at once, one thread
    double work = 0;                 // multiplications and additions of the factorization

    std::int32_t size() const { return static_cast<std::int32_t>(equation.size()); }
    std::span<const std::int32_t> children_of(std::int32_t s) const {
        return std::span(children).subspan(child_start[s], child_start[s + 1] - child_start[s]);
    }
    std::span<const RowRun> runs_of(std::int32_t s) const {
        return std::span(runs).subspan(run_start[s], run_start[s + 1] - run_start[s]);
    }
    // One behind the last of its columns' groups.
    std::int32_t group_end(std::int32_t s) const {
        return s + 1 < static_cast<std::int32_t>(fronts.size())
                   ? fronts[s + 1].first_group
                   : static_cast<std::int32_t>(group_start.size()) - 1;
    }
};

// Columns of a tile: a front's panel and an update matrix are stored tile by tile, columns k·tile_columns …
// of the rows from k·tile_columns on, column-major.
inline constexpr std::int32_t tile_columns = 192;
// Doubles before tile k, and in all, of a lower trapezoid of `rows` rows and `columns` columns.
std::int64_t tile_offset(std::int32_t rows, std::int32_t k);
std::int64_t trapezoid_doubles(std::int32_t rows, std::int32_t columns);

// `late`: per equation nonzero where the diagonal entry is zero, as of a Lagrange multiplier; such a group is
// eliminated right after the first of its neighbours. Empty: none is. `late` groups have another neighbour.
// Throws std::bad_alloc without memory. Not interruptible while METIS orders.
FrontTree analyse_pattern(const SparseKM& km, std::span<const char> late = {});

}  // namespace kestralum
