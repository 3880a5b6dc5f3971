// The skyline factor of a run: planned against the budgets of the settings, computed with its progress lines.
#pragma once

#include <memory>

#include "solver/ldl.h"
#include "system/job.h"

namespace kestralum {

// What a factor needs beside its own profile.
struct FactorNeeds {
    int factors_on_disk = 1;     // of this size, at the same time
    double other_megabytes = 0;  // of memory: borders of rigid bodies
};

// Profile, divisions and the budgets of the factor of km, with the lines "temp_n" … "[L]memory size". Panels
// that pass MEMORY_SIZE or the machine's memory are read back from the files instead of kept. Null with
// status disk_budget ("Warning:HD" was printed) or failed.
std::unique_ptr<SkylineFactor> plan_factor(Job& job, const SparseKM& km, std::int32_t diag_num,
                                           const FactorNeeds& needs = {});

// Factors K ("LU K_sparse" lines, to `progress`); false with status failed or cancelled.
bool run_factorization(Job& job, Progress& progress, const SparseKM& km, std::span<const double> values,
                       SkylineFactor& factor);

// Waits for the file of a factor in memory, which is written beside the run; false with status failed or
// cancelled. Every run that has succeeded so far ends with it.
bool await_factor_file(Job& job, SkylineFactor& factor);

// The first free degree of freedom whose pivot is below 1e-10 of its diagonal: a body or mechanism
// that the supports do not hold. -1 when there is none.
std::int32_t find_free_motion(const SparseKM& km, std::span<const double> values,
                              const SkylineFactor& factor);

}  // namespace kestralum
