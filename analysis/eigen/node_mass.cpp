#include "analysis/eigen/node_mass.h"

#include <algorithm>

namespace kestralum {

NodeMass::NodeMass(const SparseKM& km, std::span<const std::int32_t> free_dofs) : rows_(km.rows()) {
    std::vector<std::int32_t> node_of_row(free_dofs.size());
    std::int32_t count = 0;
    for (std::size_t r = 0; r < free_dofs.size(); ++r) {
        if (r == 0 || free_dofs[r] / 3 != free_dofs[r - 1] / 3) {
            ++count;
            row_.insert(row_.end(), 3, -1);
        }
        node_of_row[r] = count - 1;
        row_[row_.size() - 3 + free_dofs[r] % 3] = static_cast<std::int32_t>(r);
    }
    start_.push_back(0);
    std::vector<double> mass_to(count, 0.0);
    for (std::int32_t node = 0; node < count; ++node) add_pairs(km, free_dofs, node_of_row, node, mass_to);
    room_.resize(12 * std::int64_t{count});
}

// The pairs of one node, from the rows of its directions. `mass_to`: zero for every node before and after.
void NodeMass::add_pairs(const SparseKM& km, std::span<const std::int32_t> free_dofs,
                         const std::vector<std::int32_t>& node_of_row, std::int32_t node,
                         std::vector<double>& mass_to) {
    for (std::int32_t d = 0; d < 3; ++d) {
        const std::int32_t r = row(node, d);
        if (r < 0) continue;
        for (std::int64_t e = km.row_start[r]; e < km.row_start[r] + km.row_count[r]; ++e) {
            const std::int32_t column = km.col_index[e];
            if (free_dofs[column] % 3 != d || km.M_value[e] == 0) continue;
            double& mass = mass_to[node_of_row[column]];
            if (mass == 0) other_.push_back(node_of_row[column]);
            mass = km.M_value[e];
        }
    }
    if (mass_to[node] == 0) other_.push_back(node);  // a diagonal there is in any case
    std::sort(other_.begin() + start_.back(), other_.end());
    for (std::size_t e = start_.back(); e < other_.size(); ++e) {
        mass_.push_back(mass_to[other_[e]]);
        mass_to[other_[e]] = 0;
    }
    start_.push_back(static_cast<std::int64_t>(other_.size()));
}

std::vector<std::int32_t> NodeMass::free_in(std::int32_t direction) const {
    std::vector<std::int32_t> out;
    for (std::int32_t node = 0; node < nodes(); ++node)
        if (row(node, direction) >= 0) out.push_back(node);
    return out;
}

SparseKM NodeMass::among(std::span<const std::int32_t> chosen) const {
    std::vector<std::int32_t> number(nodes(), -1);
    for (std::size_t k = 0; k < chosen.size(); ++k) number[chosen[k]] = static_cast<std::int32_t>(k);
    SparseKM km;
    km.row_start.push_back(0);
    for (const std::int32_t node : chosen) {
        for (std::int64_t e = start_[node]; e < start_[node + 1]; ++e) {
            if (number[other_[e]] < 0) continue;
            km.col_index.push_back(number[other_[e]]);
            km.M_value.push_back(mass_[e]);
        }
        km.row_count.push_back(static_cast<std::int32_t>(km.entries() - km.row_start.back()));
        km.row_start.push_back(km.entries());
    }
    find_diagonals(km);
    return km;
}

template <std::int32_t columns>
void NodeMass::multiply_some(const double* x, double* y, std::int64_t n, int threads) {
    constexpr std::int32_t block = 3 * columns;
    constexpr std::int64_t least_work = 100000;  // products for which threads pay
    const std::int64_t count = nodes();
#pragma omp parallel num_threads(threads) if (start_.back() * block > least_work)
    {
#pragma omp for schedule(static)
        for (std::int64_t node = 0; node < count; ++node)
            for (std::int64_t d = 0; d < 3; ++d) {
                const std::int32_t r = row_[3 * node + d];
                for (std::int32_t c = 0; c < columns; ++c)
                    room_[node * block + d * columns + c] = r < 0 ? 0.0 : x[c * n + r];
            }
#pragma omp for schedule(static)
        for (std::int64_t node = 0; node < count; ++node) {
            double sum[block] = {};
            for (std::int64_t e = start_[node]; e < start_[node + 1]; ++e) {
                const double m = mass_[e];
                const double* from = &room_[std::int64_t{other_[e]} * block];
                for (std::int32_t q = 0; q < block; ++q) sum[q] += m * from[q];
            }
            for (std::int64_t d = 0; d < 3; ++d) {
                const std::int32_t r = row_[3 * node + d];
                for (std::int32_t c = 0; r >= 0 && c < columns; ++c) y[c * n + r] = sum[d * columns + c];
            }
        }
    }
}

void NodeMass::multiply(std::span<const double> x, std::span<double> y, std::int64_t n, std::int32_t k,
                        int threads) {
    for (std::int64_t c = 0; c < k; ++c) std::fill(y.begin() + c * n + rows_, y.begin() + (c + 1) * n, 0.0);
    std::int64_t c = 0;
    for (; c + 4 <= k; c += 4) multiply_some<4>(x.data() + c * n, y.data() + c * n, n, threads);
    for (; c < k; ++c) multiply_some<1>(x.data() + c * n, y.data() + c * n, n, threads);
}

}  // namespace kestralum
