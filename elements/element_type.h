// The table of element types: one row per kind, filled by one source file each. Everything above
// (assembly, stresses, checks) works on the rows alone.
//
// Strain and stress order: xx yy zz xy yz zx, engineering shear strains. Element degrees of freedom:
// 3·local node + direction.
#pragma once

#include <array>
#include <span>

#include "model/mesh.h"

namespace kestralum {

inline constexpr int most_nodes = 10;  // nodes of the largest element
inline constexpr int most_points = 8;  // integration points of the richest element

struct ElementType {
    ElementKind kind;
    const char* name;
    int nodes;
    int points;
    // Gradients at the integration points. x: nodes × 3, m. dN: points × nodes × 3, ∂N/∂(x y z), 1/m.
    // weight: points, integration weight × det J, m^3. False when some weight is not positive (a
    // flat or inverted element); dN is then of no use at that point.
    bool (*gradients)(const double* x, double* dN, double* weight);
    // Consistent mass per unit density, nodes × nodes, the same in each direction, m^3.
    void (*mass)(const double* x, double* me);
    // Nodal values from values at the points: nodes × points.
    const double* extrapolation;
    // Shape functions at the points: points × nodes.
    const double* shape;
};

const ElementType& element_type(ElementKind kind);

extern const ElementType hexahedron_type;
extern const ElementType tetrahedron4_type;
extern const ElementType tetrahedron10_type;

// What one element needs, gathered and evaluated once.
struct ElementPoints {
    std::array<double, 3 * most_nodes> x;
    std::array<double, 3 * most_nodes * most_points> dN;  // points × nodes × 3
    std::array<double, most_points> weight;
};

// Fills `out` for element e (0-based); false as ElementType::gradients.
bool evaluate_points(const ElementType& type, const Mesh& mesh, std::int32_t e, ElementPoints& out);

// Volume of the element: the sum of the weights.
double element_volume(const ElementType& type, const ElementPoints& points);

// The strain-displacement matrix at one point, B: 6 × (3·nodes), row-major, from dN: nodes × 3.
void strain_displacement(int nodes, const double* dN, double* B);

// Centre of an element: the mean of its nodes.
std::array<double, 3> element_centre(const Mesh& mesh, std::int32_t e);

// The isoparametric map, shared by the element types. d: nodes × 3, ∂N/∂(reference coordinates);
// J = dᵀ x, row-major 3 × 3.
void jacobian(int nodes, const double (*d)[3], const double* x, double* J);

// One integration point of it: dN = J⁻¹ d (nodes × 3); returns det J.
double map_gradients(int nodes, const double (*d)[3], const double* x, double* dN);

// Inverse of the 3 × 3 matrix J (row-major) into `inverse`; returns det J. A zero determinant leaves
// `inverse` untouched.
double invert3(const double* J, double* inverse);

}  // namespace kestralum
