// Which factor a matrix gets, by what each would cost.
#pragma once

#include <optional>
#include <string>

#include "model/settings.h"
#include "solver/front_tree.h"
#include "solver/profile.h"

namespace kestralum {

enum class SolverKind { skyline, sparse, iterative };

// Seconds of a factorization on two cores of 2023, millions of bytes in memory. From counts of the pattern
// and constants alone: the same on every machine, so that a result file does not depend on where it was made.
struct SolverCost {
    double seconds = 0, megabytes = 0;
};

struct SolverChoice {
    SolverKind kind = SolverKind::skyline;
    SolverCost skyline;                   // 0 where it was taken without a look at anything else
    std::optional<SolverCost> sparse;     // none: the skyline is so cheap that nothing else was looked at
    std::optional<SolverCost> iterative;  // none: no factor was wanted or it is small
    std::optional<FrontTree> tree;        // with `sparse`

    // "skyline 60 s 3.1 GB, sparse 4 s 0.6 GB, iterative 3 s 0.3 GB: sparse"; empty where nothing else was
    // looked at.
    std::string text() const;
};

// Whether the profile alone decides: the setting asks for the skyline, or it is so cheap.
bool takes_skyline(const Settings& settings, const Profile& profile);

// By settings.solver, or, "auto", the quicker factor; conjugate gradients where the smaller one is larger
// than largest_factor. Of km the pattern alone. Throws
// std::bad_alloc.
inline constexpr double largest_factor = 12000;  // millions of bytes
SolverChoice choose_solver(const Settings& settings, const SparseKM& km, const Profile& profile);

// Whether the fronts stay in memory beside `other_megabytes`: within MEMORY_SIZE, and with the matrices of
// `entries` entries within the machine's.
bool keeps_fronts(const FrontTree& tree, const Settings& settings, double other_megabytes,
                  std::int64_t entries);

}  // namespace kestralum
