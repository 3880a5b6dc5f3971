// Vectors that are orthonormal in the inner product of the mass matrix.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "analysis/eigen/shifted_pencil.h"
#include "solver/tall_blocks.h"

namespace kestralum {

// n × count, column after column. Functions that return bool are false with the report's status set: stopped,
// out of memory, or values that are not finite.
class Basis {
public:
    // Borrows the problem. widest: columns of the blocks that are added.
    Basis(ShiftedPencil& problem, std::int32_t widest);

    std::int32_t count() const { return static_cast<std::int32_t>(V_.size() / n_); }
    std::span<const double> vectors() const { return V_; }
    const double* vector(std::int32_t j) const { return V_.data() + std::size_t(j) * n_; }
    void reserve(std::int32_t count) { V_.reserve(std::size_t(count) * n_); }

    // Takes the block's columns in, orthonormal to each other and to all before; those of which nothing is
    // left are dropped, so that count() may grow by less than their number, or not at all. product: M times
    // the block, where it is known.
    bool add(std::span<const double> block, std::span<const double> product = {});
    // Takes orthonormal vectors in as they are.
    void append(std::span<const double> vectors) { V_.insert(V_.end(), vectors.begin(), vectors.end()); }

    // C = [v_first …]ᵀ B, (count - first) × b.
    bool products(std::int32_t first, std::span<const double> B, std::vector<double>& C);
    // [v_first …] S, n × k; the vectors of the basis are lost.
    bool combine(std::int32_t first, std::span<const double> S, std::int32_t k, std::vector<double>& out);

private:
    ShiftedPencil& problem_;
    std::size_t n_;
    RowTeam team_;
    TallBlocks tall_;
    std::vector<double> V_, room_;
};

}  // namespace kestralum
