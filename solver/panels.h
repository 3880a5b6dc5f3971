// How a factor is laid out in memory: panels of consecutive rows, dense from the panel's first
// column to its last row, so that the arithmetic runs in BLAS level 3.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <mutex>
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

// Panel I holds rows row_begin(I) … row_end(I)-1 and columns first_col[I] … row_end(I)-1, row-major
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

    std::int32_t panels() const { return static_cast<std::int32_t>(first_col.size()); }
    std::int32_t row_begin(std::int32_t I) const { return I * nb; }
    std::int32_t row_end(std::int32_t I) const { return std::min(n, (I + 1) * nb); }
    std::int32_t rows(std::int32_t I) const { return row_end(I) - row_begin(I); }
    std::int32_t width(std::int32_t I) const { return row_end(I) - first_col[I]; }
    std::int64_t doubles(std::int32_t I) const { return std::int64_t{rows(I)} * ld[I]; }
    std::int64_t largest_panel() const;
    // Offset of (row, col) of panel I in its block.
    std::int64_t at(std::int32_t I, std::int32_t row, std::int32_t col) const {
        return std::int64_t{row - row_begin(I)} * ld[I] + (col - first_col[I]);
    }
};

// `panel_rows` 0 chooses by the profile's height.
PanelGrid make_panel_grid(const Profile& profile, std::int32_t panel_rows = 0);

// Panels that have been computed and wait for their file: no more than these.
inline constexpr std::size_t most_panels_waiting = 8;

// Memory of a factor that is kept, with the scratch panels of the threads; and the largest of one whose rows
// are read back from its files (FactorOptions::keep_in_memory false, or several divisions). Millions of
// bytes.
double panel_megabytes(const Profile& profile, int threads = 1);
double spilled_megabytes(const Profile& profile, int threads = 1);

// The panels of one factor: all in one block, or, spilled, those between take() and give_back() in
// blocks that are used again. take() and give_back() may be called from several threads.
class PanelStore {
public:
    PanelStore() = default;
    PanelStore(const PanelGrid& grid, bool spilled);
    PanelStore(PanelStore&&) noexcept = default;
    PanelStore& operator=(PanelStore&&) noexcept = default;

    bool empty() const { return place_.empty(); }
    double* take(std::int32_t I);  // uninitialised; null when there is no memory
    void give_back(std::int32_t I);
    const double* panel(std::int32_t I) const { return place_[I]; }

private:
    Block all_;                       // unspilled: every panel
    std::vector<double*> place_;      // panels
    std::int64_t block_doubles_ = 0;  // spilled: size of each block
    std::vector<Block> blocks_;       // spilled: panels' blocks
    std::vector<Block> spare_;
    std::unique_ptr<std::mutex> lock_;
};

// OpenBLAS chooses its kernels by the processors it knows; on a newer one with AVX-512 it falls back to
// those for AVX2. Returns the OPENBLAS_CORETYPE that would serve better than the kernels in use, null where
// these are right. The variable is read when a process loads the library: a program that wants it sets it and
// starts itself again.
const char* better_blas_kernels();

// Keeps OpenBLAS to one thread: the parallel loops are ours.
void use_serial_blas();

}  // namespace kestralum
