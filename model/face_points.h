// Faces of elements as their elements interpolate them: nodes, shape functions, integration points.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "model/mesh.h"

namespace kestralum {

inline constexpr int most_face_nodes = 6;

// Corners, winding outwards, and then the nodes in the middle of 0-1, 1-2 and 2-0.
struct FaceNodes {
    int count = 0, corners = 0;                        // 3, 4 or 6; 3 or 4
    std::array<std::int32_t, most_face_nodes> node{};  // 0-based
};
FaceNodes face_nodes(const Mesh& mesh, const ElementFace& face);

// Shape functions and their derivatives at the face coordinates r, s: of quadrangles from -1 to 1, of
// triangles the area coordinates of corners 1 and 2.
struct FaceShape {
    std::array<double, most_face_nodes> N{};
    std::array<std::array<double, 2>, most_face_nodes> dN{};
};
FaceShape face_shape(int count, double r, double s);

// One integration point of a face.
struct FacePoint {
    FaceShape shape;
    Vec3 rest{};        // place at rest, m
    Vec3 x{};           // place, with the displacements, m
    Vec3 tangent[2]{};  // ∂x/∂(face coordinates)
    double weight = 0;  // of the reference face
    Vec3 normal{};      // tangent × tangent · weight: out of the element, m^2
};

// A face's nodes and points: quadrangles by 2 × 2, triangles by the seven points that are exact to degree 5
// (Radon 1948). u (3 per node, or empty): displacements added to the coordinates.
struct FacePoints {
    FaceNodes nodes;
    int points = 0;
    std::array<FacePoint, 7> point;
};
void face_points(const Mesh& mesh, const ElementFace& face, std::span<const double> u, FacePoints& out);

// The area (m^2) of the curved face that the element's interpolation makes of its nodes; of flat ones
// exactly.
double face_area(const Mesh& mesh, const ElementFace& face);

}  // namespace kestralum
