// The factor of a run: chosen, planned against the budgets of the settings, computed with its progress lines.
#pragma once

#include <memory>

#include "solver/factor.h"
#include "system/job.h"

namespace kestralum {

// What a factor needs beside its own profile, and where its equations stand.
struct FactorNeeds {
    std::span<const std::int32_t>
        free_dofs;               // per equation its degree of freedom in the run's mesh; borrowed
    int factors_on_disk = 1;     // of this size, at the same time
    double other_megabytes = 0;  // of memory: borders of rigid bodies
    bool followed = false;       // by others in the same place: only the last one's file is wanted
};

// The factor of km, or what stands for it, by the setting SOLVER, with the lines of its plan ("temp_n" …
// "[L]memory size" of a skyline, the last one of the other). What passes MEMORY_SIZE or the machine's memory
// is read back from files instead of kept. Null with status disk_budget ("Warning:HD" was printed) or failed.
std::unique_ptr<Factor> plan_factor(Job& job, const SparseKM& km, std::int32_t diag_num,
                                    const FactorNeeds& needs = {});

// Factors K ("LU K_sparse" lines, to `progress`); false with status failed or cancelled.
bool run_factorization(Job& job, Progress& progress, const SparseKM& km, std::span<const double> values,
                       Factor& factor);

// Waits for the file of a factor in memory, which is written beside the run; false with status failed or
// cancelled. Every run that has succeeded so far ends with it.
bool await_factor_file(Job& job, Factor& factor);

// A degree of freedom of a body or mechanism that the supports do not hold, -1 when there is none. Small
// pivots alone do not tell a free body from a slender one: where there are any, the motion that resists least
// is found by inverse iteration, and it is free where K times it is nothing but rounding.
std::int32_t find_free_motion(const SparseKM& km, std::span<const double> values, Factor& factor,
                              const Progress& progress);

}  // namespace kestralum
