// LDLᵀ and WWᵀ (Cholesky) factorization of a sparse symmetric matrix on its skyline profile, written
// to division files as it proceeds, and solves and products with the factor.
//
// The factor is computed panel by panel, left-looking (George and Liu, 1981, ch. 4; Dongarra, Du
// Croz, Hammarling and Duff, 1990, for the blocks): with G = L·D of the panel's own rows,
//   G(I,J) L(J,J)ᵀ = A(I,J) - Σ_k<J G(I,k) L(J,k)ᵀ,   L(I,J) = G(I,J) D(J)⁻¹.
// For W the rows themselves take the place of G. Threads take panels in turn; panel I waits for panel J only
// when it reaches column J.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "model/progress.h"
#include "solver/factor.h"
#include "solver/factor_files.h"
#include "solver/factor_writer.h"
#include "solver/panels.h"
#include "solver/profile.h"
#include "solver/sparse.h"

namespace kestralum {

// The lines of row i of [M] whose w_ii² = v comes out negative (m: m_ii), and of one that W does not give
// back: |m_ii - Σ w_ij²| is not below the tolerance.
inline constexpr double w_tolerance = 1e-6;
void print_negative_mass(std::int32_t i, double v, double m, Progress& progress);
void print_unsound_mass(std::int32_t i, Progress& progress);

struct FactorOptions {
    int threads = 1;
    std::int32_t diag_num = 0;       // band measure: no row is higher; at least the largest height is used
    std::int32_t panel_rows = 0;     // 0: chosen by the profile
    std::string log_folder = "log";  // where the division files lie
    const char* file_stem = stiffness_stem;
    // False: rows are freed as soon as no later row needs them, and solves read them back from the files; so
    // it is in any case where there are several divisions. The factor is the same to the last bit.
    bool keep_in_memory = true;
    std::int64_t direct_bytes =
        std::int64_t{256} << 20;  // a factor in one division of this size is written past the page cache
    // Given: a factor that is kept in memory is handed over before its file is written; await_files() says
    // when it is. The cancel of this progress, which outlives the factor, ends the writing.
    const Progress* write_behind = nullptr;
    bool write_files = true;  // false: for a factor kept in memory only
    // With write_behind, where other factors follow: one that is kept in memory goes to its file when
    // begin_files() or await_files() asks for it, so that only the last one does.
    bool write_last = false;
};

// A factor L D Lᵀ or W Wᵀ: D in memory, the rows of L or W in memory (one division) or in the division
// files.
class SkylineFactor : public Factor {
public:
    // Both tables are kept by the object.
    SkylineFactor(Profile profile, Divisions divisions, FactorOptions options);
    ~SkylineFactor() override;

    // Factors the matrix `values` on km's pattern (the pattern the profile was made from). Prints the
    // progress lines, "Warning   D[%d]:%.3e\n" for negative pivots. On failure error() says why and
    // the factor cannot be used.
    FactorStatus factor_ldl(const SparseKM& km, std::span<const double> values, Progress& progress);

    // Cholesky: w_ij in place of l_ij, w_ii = √v in the diagonal slot, D()[i] = v. A negative v is told
    // ("[M] is not positive define at %dth row\n") and its size taken; at the end every row is checked.
    FactorStatus factor_ww(const SparseKM& km, std::span<const double> values, Progress& progress);

    void begin_files() override;
    // Waits for a file that is written behind; so does the next factorization, and the object's end. Any
    // failure but ok: error() says why.
    FactorStatus await_files() override;
    bool has_files() const override { return true; }

    // In place for k columns: x is n × k, column after column. The columns are taken in fixed groups, so that
    // the threads do not show in the result. Where `progress` is given its cancel ends them. False when a
    // division file cannot be read, memory is missing or the user stopped (error() says why).
    // L D Lᵀ x = b is solved:
    bool solve_ldl(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr);
    // with the factor W: x = W x, x = Wᵀ x, and the solution of Wᵀ x = b.
    bool multiply_w(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr);
    bool multiply_wt(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr);
    bool solve_wt(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr);

    FactorStatus factor(const SparseKM& km, std::span<const double> values, Progress& progress) override;
    bool solve(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr) override {
        return solve_ldl(x, k, progress);
    }
    bool solve_block(std::span<double> x, std::int32_t k, const Progress* progress = nullptr) override {
        return k > 1 ? solve_wide(x.data(), k, progress) : solve_ldl(x, k, progress);
    }
    std::vector<SmallPivot> small_pivots(double share) const override;
    std::int64_t entries() const override { return profile_.Ls_num; }
    std::int32_t division_count() const override { return divisions_.count(); }

    const Profile& profile() const { return profile_; }
    const FactorOptions& options() const { return options_; }
    const Divisions& divisions() const { return divisions_; }
    const std::vector<double>& D() const { return D_; }
    std::int64_t negative_pivots() const override { return negative_pivots_; }
    std::string error() const override { return error_; }

    // Row i of L from its first column to the diagonal (1.0 there), or of W: read from memory or file.
    bool read_row(std::int32_t i, std::span<double> row);

private:
    enum class Kind { ldl, ww };
    struct Span {  // columns c0 … c0 + columns of a panel, and k0, the first that reaches them
        std::int32_t k0, c0, columns;
    };
    struct Operation;
    struct Scratch;
    struct Shared;  // what the threads of a factorization share
    bool spilled() const { return divisions_.count() > 1 || !options_.keep_in_memory; }

    FactorStatus factor_as(const SparseKM& km, std::span<const double> values, Kind kind, Progress& progress);
    void begin_writing(const Progress& progress);
    FactorStatus finish_writing();
    void prepare(const SparseKM& km, std::span<const double> values, Kind kind, Progress& progress);
    void compute_panels(const SparseKM& km, std::span<const double> values);
    void load_panel_of_matrix(const SparseKM& km, std::span<const double> values, std::int32_t I,
                              double* G) const;
    bool factor_panel(std::int32_t I, double* G, double* L);
    bool subtract_products(std::int32_t I, std::int32_t J, const Span& c, double* G, const double* LJ) const;
    bool factor_diagonal_block(std::int32_t I, double* G, double* L);
    void factor_strip(std::int32_t columns, std::int32_t row, double* g, double* l, std::int32_t ld);
    void report_panels();
    bool store_panel(std::int32_t I, const double* L);
    void report_stored(std::int32_t I);
    void report_row(std::int32_t i);
    void report_spill(std::int32_t i);
    FactorStatus check_rows_of_w(const SparseKM& km, std::span<const double> values, Progress& progress);

    FactorStatus sweep(const Operation& operation, std::span<double> x, std::int32_t k,
                       const Progress* progress);
    FactorStatus take_panels(const Operation& operation, std::span<double> x, std::int32_t k, int thread,
                             int threads, const Progress* progress);
    void take_panel(const Operation& operation, std::int32_t I, Scratch& scratch, double* x, std::int32_t k,
                    bool single) const;
    // Of a kept factor, one right-hand side: x := A⁻¹ x or W⁻ᵀ x, on all threads.
    bool solve_one(double* x, const Progress* progress);
    FactorStatus solve_forward_one(double* x, const Progress* progress) const;
    FactorStatus solve_backward_one(double* x, const Progress* progress) const;
    // Several, interleaved; of a spilled factor too, with the same sums.
    struct Wide;
    bool solve_wide(double* x, std::int32_t k, const Progress* progress);
    FactorStatus solve_group(double* x, std::int32_t k, const Progress* progress);
    FactorStatus solve_forward_wide(const Wide& wide, const Progress* progress) const;
    FactorStatus solve_backward_wide(const Wide& wide, const Progress* progress) const;
    FactorStatus solve_wide_from_files(Wide& wide, std::vector<const double*>& at, bool forward,
                                       const Progress* progress);
    void solve_triangle_one(std::int32_t I, double* room, double* x, bool transposed) const;
    // The kept panel's or, read into `buffer`, the spilled panel's row i from its first column on.
    const double* row_of(std::int32_t i, const double* buffer) const;
    bool read_panel(std::int32_t I, double* buffer);
    void fail(FactorStatus why);

    Profile profile_;
    Divisions divisions_;
    FactorOptions options_;
    PanelGrid grid_;
    FactorFiles files_;
    Kind kind_ = Kind::ldl;
    const SparseKM* km_ = nullptr;  // what factor() was given
    std::span<const double> values_;
    std::vector<double> D_;
    PanelStore panels_;  // kept: all; spilled: those in reach while it is computed
    std::int64_t negative_pivots_ = 0;
    std::string error_;
    std::unique_ptr<Shared> shared_;        // while it is computed
    bool unwritten_ = false;                // a kept factor of which the writing has not begun
    std::unique_ptr<FactorWriter> writer_;  // of a kept factor; its end comes before that of what it writes
};

}  // namespace kestralum
