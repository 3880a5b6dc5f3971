// The Cholesky factor W of [M] = W Wᵀ, computed from the mass per pair of nodes: no direction couples with
// another, so that the rows of W of one direction are those of the factor of the nodes' mass, with zeros at
// the other directions' columns. Where all directions have the same free nodes one such factor serves all,
// with a 27th of the work.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "analysis/eigen/node_mass.h"
#include "solver/ldl.h"

namespace kestralum {

class MassFactor {
public:
    // `profile` and `divisions` of [M], which the factor's files have. From `options`: threads, band, folder,
    // write_behind. Borrows `mass`; keeps the rest.
    MassFactor(const NodeMass& mass, Profile profile, Divisions divisions, const FactorOptions& options);
    ~MassFactor();

    // Memory of the factors while they are computed, millions of bytes.
    double megabytes() const;
    // With the lines of SkylineFactor::factor_ww for all of [M]. Any failure but ok: error() says why.
    FactorStatus factor(Progress& progress);
    // x := W⁻ᵀ x, one value per row of [M]; false as SkylineFactor::solve_wt.
    bool solve_wt(std::span<double> x);
    FactorStatus await_files();
    std::string error() const { return error_; }

private:
    struct Part {  // directions with the same free nodes
        std::vector<std::int32_t> nodes;
        SparseKM matrix;
        std::unique_ptr<SkylineFactor> W;
    };
    struct Place {  // of a row of [M]
        std::int32_t part = 0, row = 0, direction = 0;
    };
    bool print_rows(Progress& progress) const;
    void check_rows(Progress& progress);
    void expand(std::int32_t first, std::int32_t last, const double** rows);
    double diagonal(std::int32_t i) const;

    const NodeMass& mass_;
    Profile profile_;
    Divisions divisions_;
    FactorOptions options_;
    std::vector<Part> parts_;
    std::array<std::int32_t, 3> part_of_{};  // directions
    std::vector<Place> places_;              // rows of [M]
    FactorFiles files_;
    std::vector<double> expanded_, row_;  // of the writer: some rows of W; one of a part
    std::string error_;
    std::unique_ptr<FactorWriter> writer_;  // its end comes before that of what it writes
};

}  // namespace kestralum
