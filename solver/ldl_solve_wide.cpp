// Solves with several right-hand sides, 8 or 16 at a time interleaved, on all threads.
#include <exception>

#include "solver/ldl.h"
#include "solver/solve_kernel.h"
#include "solver/solve_tasks.h"

namespace kestralum {

namespace {

constexpr std::int32_t most_values = 16;

// k columns of x, n apart, to groups of `values` per row and back; what is beyond them is 0.
void interleave(const double* x, std::int64_t n, std::int32_t k, std::int32_t values, double* to,
                int threads) {
#pragma omp parallel for schedule(static) num_threads(threads) if (n * k > 100000)
    for (std::int64_t i = 0; i < n; ++i)
        for (std::int32_t c = 0; c < values; ++c) to[i * values + c] = c < k ? x[c * n + i] : 0.0;
}
void take_apart(const double* from, std::int64_t n, std::int32_t k, std::int32_t values, double* x,
                int threads) {
#pragma omp parallel for schedule(static) num_threads(threads) if (n * k > 100000)
    for (std::int64_t i = 0; i < n; ++i)
        for (std::int32_t c = 0; c < k; ++c) x[c * n + i] = from[i * values + c];
}

// Some rows of a triangle with a unit diagonal at a time.
constexpr std::int32_t triangle_rows = 8;

}  // namespace

// The group's solve: x is n × values, row after row.
struct SkylineFactor::Wide {
    const SkylineFactor& factor;
    const SolveKernels& kernels;
    FactorRows L;
    double* x;

    void solve_triangle(std::int32_t I) const {
        const std::int32_t begin = factor.grid_.row_begin(I), end = factor.grid_.row_end(I);
        for (std::int32_t r = begin; r < end; r += triangle_rows) {
            const std::int32_t last = std::min(end, r + triangle_rows);
            kernels.subtract_products(L, r, last - r, begin, r, x);
            for (std::int32_t i = r + 1; i < last; ++i) kernels.subtract_products(L, i, 1, r, i, x);
        }
    }
    void solve_transposed_triangle(std::int32_t I) const {
        const std::int32_t begin = factor.grid_.row_begin(I), end = factor.grid_.row_end(I);
        for (std::int32_t last = end; last > begin; last -= triangle_rows) {
            const std::int32_t r = std::max(begin, last - triangle_rows);
            for (std::int32_t i = last - 1; i > r; --i) kernels.subtract_from_columns(L, i, 1, r, i, x);
            kernels.subtract_from_columns(L, r, last - r, begin, r, x);
        }
    }
};

FactorStatus SkylineFactor::solve_forward_wide(const Wide& wide, const Progress* progress) const {
    Team team(progress);
    const std::vector<RowTask> tasks = row_tasks(grid_);
    std::vector<std::atomic<std::int32_t>> left(grid_.panels());  // rows
    for (std::int32_t I = 0; I < grid_.panels(); ++I) left[I] = grid_.rows(I);
    Flags solved(grid_.panels());
    const auto work = [&](std::int32_t t, const Room&) {
        const auto [I, row, rows] = tasks[t];
        const std::int32_t last = row + rows - 1;
        if (I > 0 && !team.wait_for(solved[I - 1], wide.L.at[row], wide.L.at[last] + profile_.height[last]))
            return false;
        wide.kernels.subtract_products(wide.L, row, rows, grid_.first_col[I], grid_.row_begin(I), wide.x);
        if (left[I].fetch_sub(rows, std::memory_order_acq_rel) > rows) return true;
        wide.solve_triangle(I);
        solved[I].store(1, std::memory_order_release);
        return true;
    };
    return take_tasks(team, grid_, options_.threads, 0, static_cast<std::int32_t>(tasks.size()), work);
}

FactorStatus SkylineFactor::solve_backward_wide(const Wide& wide, const Progress* progress) const {
    Team team(progress);
    const std::vector<ColumnTask> tasks = column_tasks(grid_);
    Flags done(tasks.size()), solved(grid_.panels());
    const auto work = [&](std::int32_t t, const Room&) {
        const ColumnTask& task = tasks[t];
        if (task.former >= 0 && !team.wait_for(done[task.former])) return false;
        if (task.triangle) {
            wide.solve_transposed_triangle(task.panel);
            solved[task.panel].store(1, std::memory_order_release);
            return true;
        }
        if (!team.wait_for(solved[task.panel])) return false;
        wide.kernels.subtract_from_columns(wide.L, grid_.row_begin(task.panel), grid_.rows(task.panel),
                                           task.begin, task.end, wide.x);
        done[t].store(1, std::memory_order_release);
        return true;
    };
    return take_tasks(team, grid_, options_.threads, 0, static_cast<std::int32_t>(tasks.size()), work);
}

// A factor that is read back, panel by panel: the same sums.
FactorStatus SkylineFactor::solve_wide_from_files(Wide& wide, std::vector<const double*>& at, bool forward,
                                                  const Progress* progress) {
    const Block buffer = allocate_block(grid_.largest_panel());
    if (!buffer) return FactorStatus::out_of_memory;
    for (std::int32_t s = 0; s < grid_.panels(); ++s) {
        if (progress && progress->cancelled()) return FactorStatus::cancelled;
        const std::int32_t I = forward ? s : grid_.panels() - 1 - s, row = grid_.row_begin(I);
        if (!read_panel(I, buffer.get())) return FactorStatus::file_failed;
        for (std::int32_t i = row; i < grid_.row_end(I); ++i) at[i] = row_of(i, buffer.get());
        if (forward) {
            wide.kernels.subtract_products(wide.L, row, grid_.rows(I), grid_.first_col[I], row, wide.x);
            wide.solve_triangle(I);
        } else {
            wide.solve_transposed_triangle(I);
            wide.kernels.subtract_from_columns(wide.L, row, grid_.rows(I), grid_.first_col[I], row, wide.x);
        }
    }
    return FactorStatus::ok;
}

FactorStatus SkylineFactor::solve_group(double* x, std::int32_t k, const Progress* progress) {
    const std::int64_t n = profile_.rows();
    const std::int32_t values = k > 8 ? most_values : 8;
    const Block room = allocate_block(n * values);
    if (!room) return FactorStatus::out_of_memory;
    std::vector<const double*> at(n, nullptr);
    std::vector<std::int32_t> first(n);
    for (std::int32_t i = 0; i < profile_.rows(); ++i) {
        first[i] = profile_.first_column(i);
        if (!spilled()) at[i] = panels_.row(i);
    }
    interleave(x, n, k, values, room.get(), options_.threads);
    Wide wide{*this, solve_kernels(values), {at.data(), first.data()}, room.get()};
    FactorStatus status =
        spilled() ? solve_wide_from_files(wide, at, true, progress) : solve_forward_wide(wide, progress);
    if (status != FactorStatus::ok) return status;
    for (std::int64_t i = 0; i < n * values; ++i) room[i] /= D_[i / values];
    status =
        spilled() ? solve_wide_from_files(wide, at, false, progress) : solve_backward_wide(wide, progress);
    take_apart(room.get(), n, k, values, x, options_.threads);
    return status;
}

bool SkylineFactor::solve_wide(double* x, std::int32_t k, const Progress* progress) {
    FactorStatus status = FactorStatus::ok;
    try {
        for (std::int32_t c = 0; c < k && status == FactorStatus::ok; c += most_values)
            status =
                solve_group(x + std::int64_t{c} * profile_.rows(), std::min(most_values, k - c), progress);
    } catch (const std::bad_alloc&) {
        status = FactorStatus::out_of_memory;
    }
    if (status != FactorStatus::ok) fail(status);
    return status == FactorStatus::ok;
}

}  // namespace kestralum
