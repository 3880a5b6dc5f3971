// The levels of the multigrid method of smoothed aggregation (Vanek, Mandel and Brezina, 1996) and how one
// is made from the one above. Of solver/multigrid.cpp alone.
//
// A node is a block row: three displacements on the first level, six motions of an aggregate below. Blocks
// are column-major: value[c·R + r].
//   A  matrix of the level         P  prolongation, from the level below to this one
//   T  tentative prolongation: the near-null space, orthonormal on each aggregate
//   D  diagonal blocks of A        N  near-null space, six columns
#pragma once

#include <array>
#include <functional>
#include <vector>

#include "solver/block_pattern.h"
#include "solver/level_kernel.h"

namespace kestralum {

// One row of A in double precision, borrowed or made in `buffer` (its blocks · B² values).
using LoadRow = std::function<const double*(const BlockPattern& pattern, std::int32_t row, double* buffer)>;

// A matrix that a level is made from. A degree of freedom that is not live has a row and a column of zeros.
template <int B>
struct LevelMatrix {
    BlockPattern pattern;
    LoadRow load;
    std::vector<char> live;  // nodes · B
    std::vector<double> N;   // nodes · B × motions, row-major
};

// What a level keeps; single precision, which only the quality of the preconditioner depends on.
template <int B>
struct Level {
    BlockPattern pattern;        // of A
    std::vector<float> A;        // B × B; here and in P one zero behind the last, see LevelArrays
    std::vector<float> inverse;  // of D; zero where a degree of freedom is not live
    double largest = 0;          // eigenvalue of D⁻¹A, estimated from below and raised by a tenth
    BlockPattern p_pattern;      // of P
    std::vector<float> P;        // B × motions
    ColumnLists p_columns;

    std::int32_t nodes() const { return pattern.rows(); }
    LevelArrays arrays() const;
    double megabytes() const;
};

enum class LevelStatus { ok, ended, not_positive, not_finite };

struct Coarsening {
    double threshold;           // of strong connections, see find_connections()
    std::int64_t most_entries;  // of the matrix below; more are only taken with threshold 0
};

// Makes the level and, with its values, the matrix below it; `from` is used up. `ended`: the team gave up.
template <int B>
LevelStatus make_level(LevelMatrix<B>&& from, const Coarsening& how, RowTeam& team, Level<B>& level,
                       LevelMatrix<motions>& below);

// ok where every part of the matrix that is coupled to nothing else resists each of its rigid motions.
// `scale`: the size of the first level's diagonal.
template <int B>
LevelStatus check_held(const LevelMatrix<B>& matrix, double scale, RowTeam& team);

// The level below all others: a dense Cholesky factor.
class CoarsestLevel {
public:
    // ok, not_positive or not_finite. Not cancelled: a tenth of a second at 1200 rows.
    template <int B>
    LevelStatus factor(const LevelMatrix<B>& from);
    // In place; x is n × k, row-major.
    void solve(double* x, int k);
    std::int32_t n() const { return n_; }
    double megabytes() const { return megabytes_of(L_) + megabytes_of(columns_); }

private:
    std::int32_t n_ = 0;
    std::vector<double> L_;        // n × n, column-major, lower
    std::vector<double> columns_;  // right-hand sides, column after column
};

// All levels: first (where the matrix is not so small that the dense one is all), rest, coarsest.
struct Hierarchy {
    bool has_first = false;
    Level<3> first;
    std::vector<Level<motions>> rest;
    CoarsestLevel coarsest;

    std::size_t above_coarsest() const { return has_first ? 1 + rest.size() : 0; }
};

}  // namespace kestralum
