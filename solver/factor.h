// The factor of a sparse symmetric matrix, however it is stored: what the analyses work with.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "model/progress.h"
#include "solver/sparse.h"

namespace kestralum {

enum class FactorStatus { ok, file_failed, out_of_memory, cancelled, bad_values };

// A pivot that is small beside its equation: |pivot| / |a_ii|.
struct SmallPivot {
    std::int32_t equation = 0;
    double share = 0;
};

// L D Lᵀ of the matrices of one pattern: factored as often as needed, each factor used until the next.
class Factor {
public:
    virtual ~Factor() = default;
    Factor(const Factor&) = delete;
    Factor& operator=(const Factor&) = delete;

    // Factors the matrix `values` on the pattern that the object was made for. Borrows both until the next
    // call. On failure error() says why and the factor cannot be used.
    virtual FactorStatus factor(const SparseKM& km, std::span<const double> values, Progress& progress) = 0;

    // A x = b in place for k columns, column after column: the same bytes on any number of threads. Where
    // `progress` is given its cancel ends them. False when memory or a file fails or the user stopped.
    virtual bool solve(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr) = 0;

    // The same for the blocks of an iteration, where speed counts for more than the digits that another order
    // of the sums leaves.
    virtual bool solve_block(std::span<double> x, std::int32_t k, const Progress* progress = nullptr) {
        return solve(x, k, progress);
    }

    // No other factor follows in this run: what the last one leaves on disk may be written now, beside the rest of
    // the run.
    virtual void begin_files() {}
    // Waits for what is still to be written of the factor, and says how that went.
    virtual FactorStatus await_files() { return FactorStatus::ok; }
    // False: it has no files to wait for and may go after the last solve.
    virtual bool has_files() const { return false; }

    virtual std::int64_t negative_pivots() const = 0;
    // Pivots that are not finite (share 0), zero or below `share` times their diagonal entry, in the order of
    // the equations.
    virtual std::vector<SmallPivot> small_pivots(double share) const = 0;
    virtual std::int64_t entries() const = 0;  // doubles of L
    double megabytes() const { return static_cast<double>(entries()) * 8e-6; }
    virtual std::int32_t division_count() const { return 1; }
    virtual std::string error() const = 0;
    // What the user may want to know of the solves since factor(); empty where there is nothing to tell.
    virtual std::string outcome() const { return {}; }

protected:
    Factor() = default;
};

}  // namespace kestralum
