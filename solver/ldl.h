// LDLᵀ factorization of a sparse symmetric matrix on its skyline profile, written to division
// files as it proceeds, and solves with the factor.
//
// The factor is computed panel by panel, left-looking (George and Liu, 1981, ch. 4; Dongarra, Du
// Croz, Hammarling and Duff, 1990, for the blocks): with G = L·D of the panel's own rows,
//   G(I,J) L(J,J)ᵀ = A(I,J) - Σ_k<J G(I,k) L(J,k)ᵀ,   L(I,J) = G(I,J) D(J)⁻¹.
// Threads take panels in turn; panel I waits for panel J only when it reaches column J.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "solver/factor_files.h"
#include "solver/panels.h"
#include "solver/profile.h"
#include "solver/sparse.h"

namespace kestralum {

enum class FactorStatus { ok, write_failed, out_of_memory, cancelled };

struct FactorOptions {
    int threads = 1;
    std::int32_t diag_num = 0;    // band measure: no row is higher; at least the largest height is used
    std::int32_t panel_rows = 0;  // 0: chosen by the profile
    const char* file_stem = "Ltemp";
};

// A factor L D Lᵀ: D in memory, the rows of L in memory (one division) or in the division files.
class LdlFactor {
public:
    // Both tables are kept by the object.
    LdlFactor(Profile profile, Divisions divisions, FactorOptions options);

    // Factors the matrix `values` on km's pattern (the pattern the profile was made from). Prints the
    // progress lines, "Warning   D[%d]:%.3e\n" for negative pivots. On failure error() says why and
    // the factor cannot be used.
    FactorStatus factor_ldl(const SparseKM& km, std::span<const double> values);

    // Solves in place for k right-hand sides: x is n × k, column after column. False when a division
    // file cannot be read (error() says why).
    bool solve_ldl(std::span<double> x, std::int32_t k = 1);

    const Profile& profile() const { return profile_; }
    const Divisions& divisions() const { return divisions_; }
    const std::vector<double>& D() const { return D_; }
    std::int64_t negative_pivots() const { return negative_pivots_; }
    std::string error() const { return error_; }

    // Row i of L from its first column to the diagonal (1.0 there), for tests and W: read from
    // memory or file.
    bool read_row(std::int32_t i, std::span<double> row);

private:

    bool spilled() const { return divisions_.count() > 1; }
    void load_panel_of_matrix(const SparseKM& km, std::span<const double> values, std::int32_t I, double* G) const;
    void factor_panel(std::int32_t I, double* G, double* L);
    void factor_diagonal_block(std::int32_t I, double* G, double* L);
    bool store_panel(std::int32_t I, const double* L);
    void report_stored(std::int32_t I);
    void report_row(std::int32_t i);
    void report_spill(std::int32_t i);
    const double* fetch_panel(std::int32_t I, Block& buffer);

    Profile profile_;
    Divisions divisions_;
    FactorOptions options_;
    PanelGrid grid_;
    FactorFiles files_;
    std::vector<double> D_;
    PanelStore panels_;  // L: all panels, or those in reach of a spilled factor
    std::int64_t negative_pivots_ = 0;
    std::string error_;

    // progress of a factorization, see ldl.cpp
    struct Progress;
    std::shared_ptr<Progress> progress_;
};

}  // namespace kestralum
