// M-orthonormal vectors.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace kestralum {

class Basis {
public:
    Basis(std::int32_t n, int threads) : n_(n), threads_(threads) {}

    std::int32_t count() const { return static_cast<std::int32_t>(V_.size() / n_); }
    const double* vector(std::int32_t j) const { return V_.data() + std::size_t(j) * n_; }
    void reserve(std::int32_t count) { V_.reserve(std::size_t(count) * n_); }
    void add(std::span<const double> v) { V_.insert(V_.end(), v.begin(), v.end()); }

    // w -= V c, c = Vᵀ M w; Mw is M w on entry and not changed. Returns |c|².
    double remove_from(std::span<double> w, std::span<const double> Mw) const;

    // V S for k columns of coordinates, each of the first S.size() / k vectors: n × k.
    std::vector<double> combine(std::span<const double> S, std::int32_t k) const;

private:
    std::int32_t n_;
    int threads_;
    std::vector<double> V_;  // n × count, column after column
};

}  // namespace kestralum
