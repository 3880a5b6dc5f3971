// Solves with one right-hand side on all threads. The work is cut into tasks by the profile alone, so that
// every sum has its order whatever the threads. These take the tasks in turn and wait for tasks taken before
// theirs only: some thread can always go on.
#include <cblas.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <exception>

#include "solver/ldl.h"

namespace kestralum {

namespace {

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
bool is_small(const PanelGrid& grid) {
    constexpr std::int64_t factor = 1 << 18, panel = 8192;  // doubles
    return grid.kept_start.back() < std::max(factor, panel * grid.panels());
}

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
std::vector<RowTask> row_tasks(const PanelGrid& grid) {
    std::vector<RowTask> tasks;
    for (std::int32_t I = 0; I < grid.panels(); ++I) {
        const std::int32_t strip = std::clamp((1 << 16) / grid.ld[I] / 8 * 8, 8, 16);
        for (std::int32_t row = grid.row_begin(I); row < grid.row_end(I); row += strip)
            tasks.push_back({I, row, std::min(strip, grid.row_end(I) - row)});
    }
    return tasks;
}

struct ColumnTask {  // all rows of a panel against some columns before its triangle, or its triangle
    std::int32_t panel, begin, end;
    std::int32_t former;  // task on these columns, or on the triangle's, that comes before, -1: none
    bool triangle;
};

std::int32_t columns_of_task(const PanelGrid& grid) {
    constexpr std::int32_t least = 256;
    return (least + grid.nb - 1) / grid.nb * grid.nb;
}

// Panels from the last to the first; of each the columns from right to left. The next triangle comes as soon
// as its columns are done: it has the other threads' work on the rest beside it.
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

}  // namespace

// The triangle on the panel's own part of x: solve with L (transposed in this view) or Lᵀ.
void SkylineFactor::solve_triangle_one(std::int32_t I, double* room, double* x, bool transposed) const {
    const std::int32_t begin = grid_.row_begin(I), first = grid_.first_col[I];
    const double* P = room;
    if (grid_.packed[I])
        panels_.copy_triangle(I, room);
    else
        P = panels_.dense(I, begin, grid_.row_end(I), nullptr) + (begin - first);
    cblas_dtrsm(CblasColMajor, CblasLeft, CblasUpper, transposed ? CblasNoTrans : CblasTrans,
                kind_ == Kind::ldl ? CblasUnit : CblasNonUnit, grid_.rows(I), 1, 1.0, P,
                grid_.packed[I] ? grid_.nb : grid_.ld[I], x + begin, grid_.n);
}

// x := L⁻¹ x. A panel's rows are products with what is solved; who ends its last strip solves its triangle.
FactorStatus SkylineFactor::solve_forward_one(double* x, const Progress* progress) const {
    Team team(progress);
    const std::vector<RowTask> tasks = row_tasks(grid_);
    std::vector<std::atomic<std::int32_t>> left(grid_.panels());  // rows
    for (std::int32_t I = 0; I < grid_.panels(); ++I) left[I] = grid_.rows(I);
    Flags solved(grid_.panels());
    std::int64_t doubles = 0;
    for (const RowTask& task : tasks)
        doubles = std::max(doubles, std::int64_t{task.rows} * grid_.ld[task.panel]);
    const auto work = [&](std::int32_t t, const Room& room) {
        const auto [I, row, rows] = tasks[t];
        const std::int32_t last = row + rows - 1;
        if (I > 0 &&
            !team.wait_for(solved[I - 1], panels_.row(row), panels_.row(last) + profile_.height[last]))
            return false;
        const std::int32_t first = grid_.first_col[I], width = grid_.row_begin(I) - first;
        if (width > 0)
            cblas_dgemv(CblasColMajor, CblasTrans, width, rows, -1.0,
                        panels_.dense(I, row, row + rows, room.rows.get()), grid_.ld[I], x + first, 1, 1.0,
                        x + row, 1);
        if (left[I].fetch_sub(rows, std::memory_order_acq_rel) > rows) return true;
        solve_triangle_one(I, room.triangle.get(), x, false);
        solved[I].store(1, std::memory_order_release);
        return true;
    };
    return take_tasks(team, grid_, options_.threads, doubles, static_cast<std::int32_t>(tasks.size()), work);
}

// x := L⁻ᵀ x, or W⁻ᵀ x.
FactorStatus SkylineFactor::solve_backward_one(double* x, const Progress* progress) const {
    Team team(progress);
    const std::vector<ColumnTask> tasks = column_tasks(grid_);
    Flags done(tasks.size()), solved(grid_.panels());
    const std::int64_t doubles = std::int64_t{grid_.nb} * columns_of_task(grid_);
    const auto work = [&](std::int32_t t, const Room& room) {
        const ColumnTask& task = tasks[t];
        const std::int32_t I = task.panel;
        if (task.former >= 0 && !team.wait_for(done[task.former])) return false;
        if (task.triangle) {
            solve_triangle_one(I, room.triangle.get(), x, true);
            solved[I].store(1, std::memory_order_release);
            return true;
        }
        if (!team.wait_for(solved[I])) return false;
        const std::int32_t columns = task.end - task.begin, row = grid_.row_begin(I);
        const double* P = room.rows.get();
        std::int32_t ld = columns;
        if (grid_.packed[I]) {
            panels_.copy_columns(I, task.begin, task.end, room.rows.get());
        } else {
            ld = grid_.ld[I];
            P = panels_.dense(I, row, grid_.row_end(I), nullptr) + (task.begin - grid_.first_col[I]);
        }
        cblas_dgemv(CblasColMajor, CblasNoTrans, columns, grid_.rows(I), -1.0, P, ld, x + row, 1, 1.0,
                    x + task.begin, 1);
        done[t].store(1, std::memory_order_release);
        return true;
    };
    return take_tasks(team, grid_, options_.threads, doubles, static_cast<std::int32_t>(tasks.size()), work);
}

bool SkylineFactor::solve_one(double* x, const Progress* progress) {
    use_serial_blas();
    FactorStatus status = FactorStatus::ok;
    try {
        if (kind_ == Kind::ldl) {
            status = solve_forward_one(x, progress);
            const std::int64_t n = profile_.rows();
            for (std::int64_t i = 0; i < n && status == FactorStatus::ok; ++i) x[i] /= D_[i];
        }
        if (status == FactorStatus::ok) status = solve_backward_one(x, progress);
    } catch (const std::bad_alloc&) {
        status = FactorStatus::out_of_memory;
    }
    if (status != FactorStatus::ok) fail(status);
    return status == FactorStatus::ok;
}

}  // namespace kestralum
