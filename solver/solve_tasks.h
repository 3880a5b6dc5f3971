// How the threads share a solve with the skyline factor. The work is cut into tasks by the profile alone, so
// that every sum has its order whatever the threads. These take the tasks in turn and wait for tasks taken
// before theirs only: some thread can always go on.
#pragma once

#include <sched.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <vector>

#include "model/progress.h"
#include "solver/factor_writer.h"
#include "solver/panels.h"

namespace kestralum {

using Flags = std::vector<std::atomic<char>>;  // zero at first

// What the threads share.
struct Team {
    explicit Team(const Progress* p) : progress(p) {}
    const Progress* progress;
    std::atomic<std::int32_t> next{0};  // task
    std::atomic<FactorStatus> status{FactorStatus::ok};

    void fail(FactorStatus why) { status = why; }
    bool given_up() const { return status.load(std::memory_order_relaxed) != FactorStatus::ok; }
    // Brings what comes next, begin … end, to the cache meanwhile.
    bool wait_for(const std::atomic<char>& flag, const double* begin = nullptr,
                  const double* end = nullptr) const {
        constexpr std::ptrdiff_t line = 8, lines = 16;
        while (!flag.load(std::memory_order_acquire)) {
            if (given_up()) return false;
            if (begin == end) sched_yield();
            for (std::ptrdiff_t k = 0; k < lines && begin != end; ++k) {
                __builtin_prefetch(begin);
                begin += std::min(line, end - begin);
            }
        }
        return true;
    }
};

// A factor or panels too small for the threads to meet over.
bool is_small(const PanelGrid& grid);

// For packed panels.
struct Room {
    Block rows, triangle;
};

// `work(task, room)` for tasks 0 … tasks - 1, `doubles` of room for rows beside a triangle; false: given up.
template <typename Work>
FactorStatus take_tasks(Team& team, const PanelGrid& grid, int threads, std::int64_t doubles,
                        std::int32_t tasks, const Work& work) {
    if (is_small(grid)) threads = 1;
    const bool packed = grid.largest_packed_panel() > 0;
    const auto take = [&] {
        const Room room{allocate_block(packed ? doubles : 0),
                        allocate_block(packed ? std::int64_t{grid.nb} * grid.nb : 0)};
        if (!room.rows || !room.triangle) return team.fail(FactorStatus::out_of_memory);
        for (std::int32_t t = team.next++; t < tasks && !team.given_up(); t = team.next++) {
            if (team.progress && team.progress->cancelled()) return team.fail(FactorStatus::cancelled);
            if (!work(t, room)) return;
        }
    };
#pragma omp parallel for schedule(static, 1) num_threads(threads) if (threads > 1)
    for (int thread = 0; thread < threads; ++thread) {
        try {
            take();
        } catch (...) {  // no exception may leave a thread
            team.fail(FactorStatus::out_of_memory);
        }
    }
    return team.status;
}

struct RowTask {  // rows of a panel against the columns before its triangle
    std::int32_t panel, row, rows;
};

// Rows of at most 2¹⁶ doubles, which stay in the cache, in eights and no more than 16, so that there are
// enough for the threads.
std::vector<RowTask> row_tasks(const PanelGrid& grid);

struct ColumnTask {  // all rows of a panel against some columns before its triangle, or its triangle
    std::int32_t panel, begin, end;
    std::int32_t former;  // task on these columns, or on the triangle's, that comes before, -1: none
    bool triangle;
};

// Columns are cut at multiples of this.
std::int32_t columns_of_task(const PanelGrid& grid);
// Panels from the last to the first; of each the columns from right to left. The next triangle comes as soon
// as its columns are done: it has the other threads' work on the rest beside it.
std::vector<ColumnTask> column_tasks(const PanelGrid& grid);

}  // namespace kestralum
