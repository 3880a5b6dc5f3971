// Loads and springs on faces of a mesh: integrals over the faces as their elements interpolate them
// (face_points.h). Faces: of a set of the mesh (MeshSet::faces). Nodal values: 3 per node, N.
#pragma once

#include <array>
#include <functional>
#include <limits>
#include <span>
#include <string>

#include "model/face_points.h"

namespace kestralum {

// The first of wrong_value() at the faces' points at rest; empty where the field can be used on all of them.
std::string wrong_value_on(const Mesh& mesh, std::span<const ElementFace> faces, const std::string& record,
                           const FieldExpression& field, double time,
                           double least = -std::numeric_limits<double>::infinity());

// Pressure at `time`, positive against the outward normal: of the faces at rest (u empty) or as displaced.
// The value is taken at the place at rest.
void add_pressure(const Mesh& mesh, std::span<const ElementFace> faces, const FieldExpression& pressure,
                  double time, double factor, std::span<const double> u, std::span<double> nodal);

// Traction vector, Pa, on the faces at rest.
void add_traction(const Mesh& mesh, std::span<const ElementFace> faces,
                  const std::array<FieldExpression, 3>& traction, double time, std::span<double> nodal);

// A total force shared evenly over the area, which must not be zero.
void add_force(const Mesh& mesh, std::span<const ElementFace> faces, const Vec3& force,
               std::span<double> nodal);

// A bearing load: pressure p0 max(0, -n·d) on a cylinder's faces, d the force's direction across the axis and
// n the outward normal of the face, with p0 such that its resultant is `force`: on uneven faces d turns off
// the force as far as that needs. The part of the force along the axis is spread evenly. Not empty: why there
// is none (not a cylinder, no face that looks against it); nothing is added then.
std::string add_bearing(const Mesh& mesh, std::span<const ElementFace> faces, const Vec3& force,
                        std::span<double> nodal);

// Force and moment at a point on the faces' nodes, weighted by their share of the area (a distributing
// coupling: f_i = w_i (F/W + T⁻¹M' × r_i), r_i from the weighted centre). Not empty: why it cannot be (the
// nodes lie on a line).
std::string add_remote(const Mesh& mesh, std::span<const ElementFace> faces, const Vec3& point,
                       const Vec3& force, const Vec3& moment, std::span<double> nodal);

// A dense block on the degrees of freedom of some nodes (0-based): 3·nodes square, row-major, N/m.
using AddBlock = std::function<void(std::span<const std::int32_t> nodes, std::span<const double> block)>;

// Stiffness of springs per area, N/m^3, in all directions and along the faces' normals; either may be empty.
void surface_springs(const Mesh& mesh, std::span<const ElementFace> faces, const FieldExpression& all,
                     const FieldExpression& normal, const AddBlock& add);

// The derivative of -add_pressure() by u, with its half of the transpose: K is made symmetric face by face
// (exact where the pressure is uniform and the loaded surface closed or held at its edge; Hibbitt 1979).
void pressure_stiffness(const Mesh& mesh, std::span<const ElementFace> faces, const FieldExpression& pressure,
                        double time, double factor, std::span<const double> u, const AddBlock& add);

}  // namespace kestralum
