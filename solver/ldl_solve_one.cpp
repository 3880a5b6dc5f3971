// Solves with one right-hand side on all threads.
#include <cblas.h>

#include <exception>

#include "solver/ldl.h"
#include "solver/solve_tasks.h"

namespace kestralum {

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
