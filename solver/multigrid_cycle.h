// One V-cycle through the levels.
#pragma once

#include <vector>

#include "solver/multigrid_levels.h"

namespace kestralum {

// The vectors of every level for K columns side by side: kept from cycle to cycle.
class CycleVectors {
public:
    struct OfLevel {
        std::vector<double> b, x, y, d;  // nodes · block rows × K; on the coarsest level only b
    };
    // Room for `columns` side by side.
    void prepare(const Hierarchy& levels, int columns);
    OfLevel& operator[](std::size_t level) { return vectors_[level]; }
    double megabytes() const;

private:
    int columns_ = 0;
    std::vector<OfLevel> vectors_;
};

// One cycle on K = 1 or 4 columns: about A⁻¹ b of the first level's b, which stays as it is, into the vector
// that is returned. Junk where the team gives up.
template <int K>
const std::vector<double>& run_cycle(Hierarchy& levels, CycleVectors& vectors, RowTeam& team);

}  // namespace kestralum
