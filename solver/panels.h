// How a factor is laid out in memory: panels of consecutive rows. While it is computed, and for arithmetic, a
// panel is dense from its first column to its last row, so that it runs in BLAS level 3; what no later panel
// reads any more is kept without the zeros before the rows where these are many.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "solver/profile.h"

namespace kestralum {

struct FreeDeleter {
    void operator()(double* p) const { std::free(p); }
};
using Block = std::unique_ptr<double[], FreeDeleter>;

// Uninitialised doubles, aligned for vector loads (large blocks on large pages); null when there is
// no memory.
Block allocate_block(std::int64_t doubles);

// Panel I holds rows row_begin(I) … row_end(I)-1 and, dense, columns first_col[I] … row_end(I)-1, row-major
// with leading dimension ld[I]. The grid depends on the profile alone, so that the arithmetic, and
// with it every bit of the factor, is the same for any number of divisions or threads.
struct PanelGrid {
    std::int32_t n = 0;
    std::int32_t nb = 0;                  // rows of a panel
    std::vector<std::int32_t> first_col;  // panels
    std::vector<std::int32_t> ld;         // panels
    std::vector<std::int32_t>
        begin_span;  // panels: from first_col to where every row but the triangle's has begun
    std::vector<std::int32_t> last_use;  // panels: last panel that reads this one
    std::vector<char> packed;  // panels: kept as its rows of the profile, one after the other, not dense
    std::vector<std::int64_t> kept_start;  // panels + 1: doubles before panel I among the kept ones

    std::int32_t panels() const { return static_cast<std::int32_t>(first_col.size()); }
    std::int32_t row_begin(std::int32_t I) const { return I * nb; }
    std::int32_t row_end(std::int32_t I) const { return std::min(n, (I + 1) * nb); }
    std::int32_t rows(std::int32_t I) const { return row_end(I) - row_begin(I); }
    std::int32_t width(std::int32_t I) const { return row_end(I) - first_col[I]; }
    std::int64_t doubles(std::int32_t I) const { return std::int64_t{rows(I)} * ld[I]; }
    // Of the largest dense panel; of the largest among the packed ones, 0 without any.
    std::int64_t largest_panel() const;
    std::int64_t largest_packed_panel() const;
    // Offset of (row, col) of panel I in its dense block.
    std::int64_t at(std::int32_t I, std::int32_t row, std::int32_t col) const {
        return std::int64_t{row - row_begin(I)} * ld[I] + (col - first_col[I]);
    }
};

// `panel_rows` 0 chooses by the profile's height.
PanelGrid make_panel_grid(const Profile& profile, std::int32_t panel_rows = 0);

// Panels that have been computed and wait for their file: no more than these.
inline constexpr std::int32_t most_panels_waiting = 8;

// Largest memory of a factorization, panels in work and scratch panels of the threads included, millions of
// bytes: of a factor that is kept, and of one whose rows are read back from its files
// (FactorOptions::keep_in_memory false, or several divisions).
double panel_megabytes(const Profile& profile, int threads = 1);
double spilled_megabytes(const Profile& profile, int threads = 1);

// The panels of one factor, each dense from take() to release(). Kept ones lie in one block: those that are
// not packed from the start, packed ones from release(). Spilled ones are gone after release(). Several
// threads may take and release, a panel one at a time. Both tables must outlive the object.
class PanelStore {
public:
    PanelStore() = default;
    PanelStore(const Profile& profile, const PanelGrid& grid, bool spilled);

    bool empty() const { return dense_.empty(); }
    // Dense space of panel I, uninitialised; null when there is no memory.
    double* take(std::int32_t I);
    const double* taken(std::int32_t I) const { return dense_[I]; }
    // No later panel reads panel I.
    void release(std::int32_t I);

    // Of kept panels that have been released: row i from its first column on; rows [first, last) of panel I
    // dense, with the panel's leading dimension, as they lie there or, packed, made in `buffer`.
    const double* row(std::int32_t i) const;
    const double* dense(std::int32_t I, std::int32_t first, std::int32_t last, double* buffer) const;
    // Columns [begin, end) of packed panel I, all of its rows, leading dimension end - begin.
    void copy_columns(std::int32_t I, std::int32_t begin, std::int32_t end, double* columns) const;
    // The triangle of packed panel I, rows(I) square with leading dimension nb. Here and in dense() what
    // stands right of the diagonal has no meaning.
    void copy_triangle(std::int32_t I, double* triangle) const;

private:
    std::int64_t kept_offset(std::int32_t i) const;

    const Profile* profile_ = nullptr;
    const PanelGrid* grid_ = nullptr;
    bool spilled_ = false;
    Block kept_;
    std::vector<double*> dense_;  // panels
    std::vector<Block> blocks_;   // panels: of those that are packed or spilled
};

// Zeros before the first columns of rows [first, last) of panel I; `rows` is where the first of them lies.
void clear_before_rows(const Profile& profile, const PanelGrid& grid, std::int32_t first, std::int32_t last,
                       double* rows);

// OpenBLAS chooses its kernels by the processors it knows; on a newer one with AVX-512 it falls back to
// those for AVX2. Returns the OPENBLAS_CORETYPE that would serve better than the kernels in use, null where
// these are right. The variable is read when a process loads the library: a program that wants it sets it and
// starts itself again.
const char* better_blas_kernels();

// Keeps OpenBLAS to one thread: the parallel loops are ours.
void use_serial_blas();
// How many threads OpenBLAS has, one number for the whole process, where others use it too.
int blas_threads();
void set_blas_threads(int threads);

// Makes OpenBLAS take the buffers of all threads that will call it, at once: where a limit of address space
// leaves it none in the middle of a run it would try for ever.
void take_blas_buffers();

}  // namespace kestralum
