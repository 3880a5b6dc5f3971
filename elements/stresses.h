// Strains and stresses at the integration points, their nodal averages and the forces they balance.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "elements/elasticity.h"
#include "model/progress.h"
#include "model/topology.h"

namespace kestralum {

// Per element and point: six stresses (N/m^2) and six strains, xx yy zz xy yz zx.
struct PointResults {
    std::vector<double> stress;  // element_num × points × 6
    std::vector<double> strain;  // element_num × points × 6
    std::vector<double> volume;  // element_num, m^3
    std::vector<double> weight;  // element_num × points, m^3: the volume of each point; of point_stresses
};

struct PointOptions {
    HexahedronForm form = HexahedronForm::full;
    std::span<const double> initial = {};  // initial strains ε0, element_num × points × 6; empty: none
};

// ε = B u and σ = D (ε - ε0) at every point, B with the internal strains of the form; u: 3 per node.
void point_stresses(const Mesh& mesh, std::span<const Part> parts, const Elasticity& elasticity,
                    std::span<const double> u, int threads, PointResults& out, const Progress& progress,
                    const PointOptions& options = {});

// Averages at the nodes: point values extrapolated to the nodes of each element, averaged over the
// elements of one part around the node with their volumes as weights; on a node of several parts
// the part with the larger Mises stress of the average stands. plastic_strain (element_num × points)
// may be empty. Writes groups 0 … 4 of one mode: node_stress is that mode's slice, 5 × dof_num.
// Prints "mean_stress_strain". A cancel leaves both unfinished.
void mean_stress_strain(const Mesh& mesh, const NodeElements& node_elements, const PointResults& points,
                        std::span<const double> plastic_strain, int threads, std::span<double> node_stress,
                        Progress& progress);

// Means over the points of each element, element × components, of values element × points × components.
std::vector<float> point_means(std::span<const double> values, int points, int components);

// Internal forces Σ ∫ Bᵀ σ dV at the nodes with wanted[node] != 0 (3 per node, 0 elsewhere), N.
std::vector<double> internal_forces(const Mesh& mesh, const PointResults& points,
                                    std::span<const char> wanted, HexahedronForm form = HexahedronForm::full);

}  // namespace kestralum
