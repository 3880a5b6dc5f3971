// How the displacements of all nodes follow from those that are free to choose: u = T q.
//
// q has the size of u. At a plain node the two are the same. At a node with axes of its own q has the
// components along them (a roller on a slanted or curved face). A tied node has no part of its own: its
// displacement is a weighted sum of others', its places in q are dead.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "model/vector3.h"

namespace kestralum {

class ConstraintMap {
public:
    // Weights of other nodes (0-based).
    using Weights = std::vector<std::pair<std::int32_t, double>>;

    bool empty() const { return node_row_.empty(); }
    // Before close(): the three values of node n (of `nodes`) are along the rows of `axes` (orthonormal);
    // node n moves as Σ weight · (the other's displacement).
    void set_axes(std::int32_t n, std::int32_t nodes, const Mat3& axes);
    void tie(std::int32_t n, std::int32_t nodes, Weights weights);
    // Resolves chains of ties; the node (0-based) at which they run in a circle, -1 where none does.
    std::int32_t close();

    bool is_tied(std::int32_t n) const { return !empty() && tied_[n] != 0; }
    // Of the k-th special node: which nodes it follows when it is tied, after close() none of them tied.
    const Weights& weights(std::size_t k) const { return weights_[k]; }
    const Weights& weights_of(std::int32_t n) const { return weights_[node_row_[n]]; }
    // Unit vector of q's value 3n + c: along the node's axes, or x y z.
    Vec3 axis(std::int32_t dof) const;
    // u := T q and f := Tᵀ f, in place.
    void expand(std::span<double> q) const;
    void gather(std::span<double> f) const;
    // The displacements of tied nodes from those of the others, in place.
    void follow(std::span<double> u) const;
    // A diagonal mass in place: a tied node's goes to the others by the sizes of their weights; sums are kept
    // and no mass is taken from any.
    void gather_mass(std::span<double> mass) const;
    // The largest Σ |weight| of a tied node, at least 1: above 1 where weights are negative. No frequency of
    // the body on masses of gather_mass() is higher than this times the highest without ties: by
    // Cauchy-Schwarz the tied nodes' own kinetic energy is at most its square times what gather_mass() makes
    // of it.
    double spread() const;

    // The rows of T: of a plain degree of freedom 1 at its own place, of the others the terms.
    struct Term {
        std::int32_t dof;
        double factor;
    };
    bool plain(std::int32_t dof) const { return node_row_[dof / 3] < 0; }
    std::span<const Term> row(std::int32_t dof) const {
        const std::size_t r = 3 * static_cast<std::size_t>(node_row_[dof / 3]) + dof % 3;
        return {terms_.data() + start_[r], terms_.data() + start_[r + 1]};
    }
    // Nodes that are not plain, ascending.
    std::span<const std::int32_t> special_nodes() const { return special_; }

private:
    std::int32_t special(std::int32_t n, std::int32_t nodes);
    bool resolve(std::int32_t n, std::vector<char>& state);

    std::vector<std::int32_t> node_row_;  // per node: which of special_ it is, -1: plain; empty: all are
    std::vector<std::int32_t> special_;
    std::vector<Mat3> axes_;           // per special node, as given or the identity
    std::vector<Weights> weights_;     // per special node: of a tied one
    std::vector<char> tied_;           // per node
    std::vector<std::int64_t> start_;  // 3 rows per special node
    std::vector<Term> terms_;
};

}  // namespace kestralum
