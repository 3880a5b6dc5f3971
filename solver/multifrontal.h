// Multifrontal L D Lᵀ (Duff and Reid, ACM Trans. Math. Softw. 9, 1983) of a sparse symmetric matrix: each
// front of the tree takes its part of the matrix and the update matrices of its children, eliminates its
// columns and hands what is left to its parent.
//
// OpenMP tasks run over the tree and over the tiles of large fronts; tile shapes and the order of every sum
// depend on the pattern alone, so that the factor is the same to the last bit on any number of threads.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "solver/factor.h"
#include "solver/front_kernels.h"
#include "solver/front_tree.h"
#include "solver/panels.h"

namespace kestralum {

struct MultifrontalOptions {
    int threads = 1;
    std::string log_folder = "log";  // where the file of a factor that is not kept lies
    bool keep_in_memory = true;      // false: panels go to "log\Stemp_0.txt" and solves read them back
};

// Memory of a factorization, millions of bytes: of a factor that is kept, and of one that is not.
double front_megabytes(const FrontTree& tree);
double spilled_front_megabytes(const FrontTree& tree, int threads);

class MultifrontalFactor : public Factor {
public:
    MultifrontalFactor(FrontTree tree, MultifrontalOptions options);
    ~MultifrontalFactor() override;

    FactorStatus factor(const SparseKM& km, std::span<const double> values, Progress& progress) override;
    // Where pivots of both signs have let errors grow, solutions are refined with the matrix.
    bool solve(std::span<double> x, std::int32_t k = 1, const Progress* progress = nullptr) override;
    std::int64_t negative_pivots() const override { return negative_; }
    std::vector<SmallPivot> small_pivots(double share) const override;
    std::int64_t entries() const override { return tree_.entries; }
    std::string error() const override { return error_; }

private:
    // One traversal of the tree: what ends it, and the vectors or matrices that children leave to parents.
    struct Walk;
    struct Elimination;
    class PanelFile;

    Pivots pivots_at(std::int32_t position);
    void take_reference();
    void walk_up(Walk& walk, const std::function<void(std::int32_t)>& visit) const;
    void walk_down(Walk& walk, const std::function<void(std::int32_t)>& visit) const;

    void factor_front(Walk& walk, std::int32_t s);
    void assemble_tile(const Walk& walk, std::int32_t s, std::int32_t k, double* tile) const;
    void scatter_columns(std::int32_t s, std::int32_t first, std::int32_t last, double* tile, int ld) const;
    void add_update(const double* update, std::int32_t child, std::int32_t first, std::int32_t last,
                    double* to, int ld) const;
    void eliminate(const Elimination& work);
    void eliminate_large(const Elimination& work);
    void make_update(Walk& walk, std::int32_t s, const double* panel);
    bool ends(Walk& walk) const;
    FactorStatus finish(Walk& walk);

    FactorStatus solve_once(std::span<double> x, std::int32_t k, const Progress* progress);
    bool refine(std::span<const double> b, std::span<double> x, std::int32_t k, const Progress* progress);
    double backward_error(std::span<const double> b, std::span<const double> x,
                          std::span<double> residual) const;
    FactorStatus check_growth(const Progress& progress);
    static double* take(Walk& walk, std::int64_t doubles);
    const double* panel_of(Walk& walk, std::int32_t s, double*& buffer) const;
    void eliminate_columns(Walk& walk, std::int32_t s, double* y, std::int32_t k) const;
    void substitute_back(Walk& walk, std::int32_t s, double* y, std::int32_t k) const;
    void swap_rows(std::int32_t position, int columns, double* v, int ldv, std::int32_t k, bool back) const;

    FrontTree tree_;
    MultifrontalOptions options_;
    const SparseKM* km_ = nullptr;
    std::span<const double> values_;
    Block panels_;                                              // kept: all
    std::unique_ptr<PanelFile> file_;                           // not kept
    std::vector<double> d_, e_, reference_, diagonal_, share_;  // by position; share_, before swaps
    std::vector<std::int32_t> order_;                           // by position: place inside its tile
    std::int64_t negative_ = 0;
    bool refines_ = false;
    std::string error_;
};

}  // namespace kestralum
