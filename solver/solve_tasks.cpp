#include "solver/solve_tasks.h"

namespace kestralum {

bool is_small(const PanelGrid& grid) {
    constexpr std::int64_t factor = 1 << 18, panel = 8192;  // doubles
    return grid.kept_start.back() < std::max(factor, panel * grid.panels());
}

std::vector<RowTask> row_tasks(const PanelGrid& grid) {
    std::vector<RowTask> tasks;
    for (std::int32_t I = 0; I < grid.panels(); ++I) {
        const std::int32_t strip = std::clamp((1 << 16) / grid.ld[I] / 8 * 8, 8, 16);
        for (std::int32_t row = grid.row_begin(I); row < grid.row_end(I); row += strip)
            tasks.push_back({I, row, std::min(strip, grid.row_end(I) - row)});
    }
    return tasks;
}

std::int32_t columns_of_task(const PanelGrid& grid) {
    constexpr std::int32_t least = 256;
    return (least + grid.nb - 1) / grid.nb * grid.nb;
}

std::vector<ColumnTask> column_tasks(const PanelGrid& grid) {
    const std::int32_t some = columns_of_task(grid);
    std::vector<ColumnTask> tasks;
    std::vector<std::int32_t> last(grid.n / some + 1, -1);  // task on each range of columns
    const auto add_triangle = [&](std::int32_t I) {
        const std::int32_t begin = grid.row_begin(I);
        tasks.push_back({I, begin, grid.row_end(I), last[begin / some], true});
    };
    add_triangle(grid.panels() - 1);
    for (std::int32_t I = grid.panels() - 1; I >= 0; --I) {
        const std::int32_t row = grid.row_begin(I), first = grid.first_col[I];
        const std::int32_t next =
            I > 0 ? grid.row_begin(I - 1) / some : row / some + 1;  // the next triangle's
        for (std::int32_t c = row / some; c >= first / some || c == next; --c) {
            const std::int32_t begin = std::max(first, c * some), end = std::min(row, (c + 1) * some);
            if (begin < end) {
                tasks.push_back({I, begin, end, last[c], false});
                last[c] = static_cast<std::int32_t>(tasks.size()) - 1;
            }
            if (c == next) add_triangle(I - 1);
        }
    }
    return tasks;
}

}  // namespace kestralum
