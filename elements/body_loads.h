// Loads of the mass and of temperature on solid elements, consistent with their shape functions.
// Nodal values: 3 per node, N.
#pragma once

#include <functional>
#include <span>

#include "model/mesh.h"

namespace kestralum {

// ∫ ρ N b(x) dV with b in m/s^2, as the elements interpolate b from their nodes: b of first degree in x is
// met exactly, and the sum is that of the consistent mass matrix. density: per part, kg/m^3. Flat and
// inverted elements must have been refused before.
void add_body_force(const Mesh& mesh, std::span<const double> density,
                    const std::function<Vec3(const Vec3& x)>& acceleration, std::span<double> nodal);

// Thermal strain α (T - T0) per integration point (element_num × points), of the parts chosen; others 0.
// expansion: per part, 1/K. Adds to what is there.
void add_thermal_strain(const Mesh& mesh, std::span<const double> expansion,
                        std::span<const char> part_chosen, const FieldExpression& temperature,
                        double reference, double time, double factor, std::span<double> strain,
                        int threads = 1);

}  // namespace kestralum
