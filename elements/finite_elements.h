// Finite-strain elements on the total displacement: tangent stiffness, internal forces and point states of
// every element type, from its referential gradients (see finite_strain.h for the point).
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "elements/element_type.h"
#include "elements/finite_strain.h"
#include "elements/stresses.h"
#include "model/topology.h"

namespace kestralum {

// One body under finite deformation. Points are numbered element × points of its type.
struct FiniteBody {
    const Mesh& mesh;
    std::span<const std::int32_t> material;  // per element: index into `materials`
    std::span<const PlasticMaterial> materials;
    int threads = 1;
    std::vector<char> rigid{};  // per element: all its nodes move as one rigid body; empty: none does

    HexahedronForm form = HexahedronForm::full;  // of hexahedra

    std::vector<double> u{};                    // 3 per node, m
    std::vector<FinitePointState> committed{};  // points: where the last accepted increment ended
    std::vector<FinitePointState> current{};    // points: at u
    std::vector<PrincipalAxes> trial{};         // points: at u, for the tangent there
    std::vector<double> stress{};               // points × 6, Cauchy stress at u, xx yy zz xy yz zx, N/m^2
    std::vector<double> committed_internal{};   // enhanced: element × parameters, with `committed`
    std::vector<double> current_internal{};     // with `current`
    std::vector<double> element_force{};        // element × 3·nodes: Σ w Bᵀ τ, N

    // Sizes the tables: at rest, unstressed.
    void start();
    // Thermal strains of the points from here on, logarithmic; the states at u are to be found anew.
    void set_thermal(std::span<const double> strain);
    // The current states become the committed ones.
    void commit();
    // The search for the internal strains starts from the committed ones again.
    void restart() { current_internal = committed_internal; }
    bool is_rigid(std::int32_t e) const { return !rigid.empty() && rigid[e] != 0; }
};

// Tangent stiffness of element e at body.u: (3·nodes)², row-major, symmetric, N/m; no load depends on the
// displacements. False where the element is inverted or a value is not finite.
bool finite_stiffness(const FiniteBody& body, std::int32_t e, double* ke);

// Stresses, states and element forces at body.u, from the committed states. Returns the first element
// (0-based) that is inverted or not finite, -1 when all are sound.
std::int32_t update_stresses(FiniteBody& body);

// Gathers the element forces at the nodes, in element order: 3 per node, N.
std::vector<double> internal_forces(const FiniteBody& body, const NodeElements& node_elements);

// Logarithmic strain ½ ln(F Fᵀ) at every point, xx yy zz xy yz zx with doubled shears, and the elements'
// current volumes; u: 3 per node. The stress of `out` stays.
void logarithmic_strains(const Mesh& mesh, std::span<const double> u, int threads, PointResults& out);

// The strain's means over the points of each element, 6 per element.
std::vector<float> mean_logarithmic_strains(const Mesh& mesh, std::span<const double> u, int threads);

// Cauchy stress, logarithmic strain and current volume, for the averages at the nodes.
PointResults finite_point_results(const FiniteBody& body);

// Volume share of the points whose equivalent plastic strain is above zero, 0 … 1.
double plastic_share(const FiniteBody& body);
// That volume and the whole one, m^3, of the elements with counted[e] != 0; all where it is empty.
std::array<double, 2> plastic_volume(const FiniteBody& body, std::span<const char> counted = {});

}  // namespace kestralum
