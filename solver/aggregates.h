// Aggregates of a matrix' block rows and the near-null space on them (Vanek, Mandel and Brezina, 1996).
#pragma once

#include <cstdint>
#include <vector>

#include "solver/block_pattern.h"

namespace kestralum {

struct Aggregates {
    std::vector<std::int32_t> of_node;  // nodes; -1: in none, coupled to nothing
    std::vector<std::int64_t> start;    // aggregates + 1
    std::vector<std::int32_t> nodes;    // of each aggregate, ascending

    std::int32_t count() const { return static_cast<std::int32_t>(start.size() - 1); }
};

enum class Connection : char { none, weak, strong };

// connections: of the pattern's blocks; strong ones gather nodes. A node that only weak ones hold is an
// aggregate of its own, a node without any is in none.
Aggregates make_aggregates(const BlockPattern& pattern, const std::vector<Connection>& connections,
                           RowTeam& team);

// The parts that no block of the pattern couples, each as one aggregate.
Aggregates find_parts(const BlockPattern& pattern, RowTeam& team);

// N restricted to each aggregate = T R (Gram and Schmidt, twice). What is dependent there, within rounding,
// becomes a zero column of T and of R and is not live.
struct Tentative {
    std::vector<double> T;   // nodes · B × 6, block after block, column-major
    std::vector<double> R;   // aggregates · 6 × 6, row-major
    std::vector<char> live;  // aggregates · 6
};
// N: nodes · block_rows × 6, row-major
Tentative make_tentative(const Aggregates& aggregates, const std::vector<double>& N, int block_rows,
                         RowTeam& team);

}  // namespace kestralum
