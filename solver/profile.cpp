#include "solver/profile.h"

#include <algorithm>

namespace kestralum {

Profile make_profile(const SparseKM& km) {
    Profile profile;
    const std::int32_t n = km.rows();
    profile.height.resize(n);
    profile.sky_start.assign(std::size_t(n) + 1, 0);
    for (std::int32_t i = 0; i < n; ++i) {
        const std::size_t row = i;
        // a row without an entry left of or on the diagonal still has its diagonal slot
        const std::int32_t first = km.row_count[row] > 0 ? std::min(i, km.col_index[km.row_start[row]]) : i;
        profile.height[row] = i - first + 1;
        profile.max_height = std::max(profile.max_height, profile.height[row]);
        profile.sky_start[row + 1] = profile.sky_start[row] + profile.height[row];
    }
    profile.Ls_num = profile.sky_start.back();
    return profile;
}

std::int32_t most_divisions(std::int32_t rows, std::int32_t diag_num) {
    return diag_num > 0 ? rows / diag_num : 0;
}

Divisions plan_divisions(const Profile& profile, double memory_size, std::int32_t div_memory_size,
                         std::int32_t diag_num, Progress& progress) {
    const std::int32_t n = profile.rows();
    const std::int32_t temp_n = most_divisions(n, diag_num);
    Divisions divisions{{0}, {0}};
    if (memory_size / div_memory_size < profile.megabytes()) {
        constexpr std::int32_t margin = 10;  // rows beyond one band
        for (std::int32_t i = 0; i < n && static_cast<std::int32_t>(divisions.div_row.size()) < temp_n; ++i) {
            progress.counter(i, n);
            if (i > divisions.div_row.back() + margin + diag_num && i + 1 < n) {
                divisions.div_row.push_back(i + 1);
                divisions.div_profile.push_back(profile.sky_start[i + 1]);
            }
        }
    }
    divisions.div_row.push_back(n);
    divisions.div_profile.push_back(profile.Ls_num);
    progress.print("\n");
    return divisions;
}

}  // namespace kestralum
