// Products of tall matrices, n rows of few columns, on all threads: the rows are cut into blocks by their
// number alone, so that every sum has its order whatever the threads. Column after column, all of them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kestralum {

// Aᵀ B for A n × a and B n × b: a × b.
std::vector<double> tall_inner(std::span<const double> A, std::span<const double> B, std::int32_t n,
                               int threads);

// X = A S for A n × m and S m × k: n × k.
void tall_combine(std::span<const double> A, std::span<const double> S, std::int32_t n, std::int32_t m,
                  std::span<double> X, int threads);

// x -= A c
void tall_subtract(std::span<const double> A, std::span<const double> c, std::span<double> x, int threads);

}  // namespace kestralum
