// The lower skyline profile of a factor and its division into row ranges that fit the memory budget.
#pragma once

#include <cstdint>
#include <vector>

#include "model/progress.h"
#include "solver/sparse.h"

namespace kestralum {

// Row i of the factor occupies sky_start[i] … sky_start[i+1]-1, from its first column up to and
// including the diagonal.
struct Profile {
    std::vector<std::int32_t> height;     // n: i - first column + 1
    std::vector<std::int64_t> sky_start;  // n + 1
    std::int64_t Ls_num = 0;              // sky_start[n]
    std::int32_t max_height = 0;

    std::int32_t rows() const { return static_cast<std::int32_t>(height.size()); }
    std::int32_t first_column(std::int32_t i) const { return i - height[i] + 1; }
    double megabytes() const { return static_cast<double>(Ls_num) * 8 / 1e6; }
};

Profile make_profile(const SparseKM& km);

// Division b holds the rows div_row[b] … div_row[b+1]-1 and the profile entries
// div_profile[b] … div_profile[b+1]-1.
struct Divisions {
    std::vector<std::int64_t> div_profile;  // count + 1
    std::vector<std::int32_t> div_row;      // count + 1
    std::int32_t count() const { return static_cast<std::int32_t>(div_row.size()) - 1; }
};

// Cuts the profile into divisions of diag_num + 12 rows when its megabytes exceed
// memory_size / div_memory_size; one division otherwise. At most max(n / diag_num, 1) divisions.
Divisions plan_divisions(const Profile& profile, double memory_size, std::int32_t div_memory_size,
                         std::int32_t diag_num, Progress& progress);

// How many divisions a band of diag_num allows: n / diag_num ("temp_n").
std::int32_t most_divisions(std::int32_t rows, std::int32_t diag_num);

}  // namespace kestralum
