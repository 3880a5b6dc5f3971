// The surface that contact works on: its triangles, what lies around each node, the edges where it turns.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "model/free_faces.h"
#include "model/vector3.h"

namespace kestralum {

// Position of a node in a table of node × 4.
inline const double* node_place(const double* node4, std::int32_t n) {
    return node4 + 4 * static_cast<std::ptrdiff_t>(n);
}
inline Vec3 node_vector(const double* node4, std::int32_t n) {
    const double* p = node_place(node4, n);
    return {p[0], p[1], p[2]};
}

// The foot of a point on a triangle's plane: barycentric weights, outward normal, signed height over the
// plane.
struct Foot {
    std::array<double, 3> weight{};
    Vec3 normal{};
    double height = 0;  // m
};

// False when a weight is below -edge or the triangle is flat. x: node × 4.
bool find_foot_point(const std::array<std::int32_t, 3>& corner, const double* x, const double* p, double edge,
                     Foot& foot);

// A convex edge between two triangles.
struct FeatureEdge {
    std::array<std::int32_t, 2> node, triangle;
    std::int32_t part;
};

class ContactSurface {
public:
    ContactSurface(const Mesh& mesh, std::vector<SurfaceTriangle> triangles);

    std::span<const SurfaceTriangle> triangles() const { return triangles_; }
    // Triangles at a node, ascending.
    std::span<const std::int32_t> around(std::int32_t n) const {
        return std::span(around_).subspan(start_[n], start_[std::size_t(n) + 1] - start_[n]);
    }
    // The triangle beyond the edge from corner k to the next; -1 where there is none or more than one.
    std::int32_t beyond(std::int32_t t, std::size_t k) const { return beyond_[3 * std::size_t(t) + k]; }
    // Edges at which the surface at rest turns outwards by more than 20 degrees, ascending by their nodes.
    std::span<const FeatureEdge> edges() const { return edges_; }
    double size(std::int32_t n) const { return size_[n]; }  // longest edge around a node at rest, m
    // Coordinates at rest, node × 4, m.
    const double* rest() const { return rest_.data(); }

    // Unit outward normal at a node, from the triangles around it by their angles (Thürmer and Wüthrich,
    // J. Graphics Tools 3, 1998): the division into triangles does not show. 0 where all are flat.
    Vec3 normal(std::int32_t n, const double* x) const;
    // Unit outward normal of a triangle; 0 where it is flat.
    Vec3 face_normal(std::int32_t t, const double* x) const;

private:
    void find_neighbours();

    std::vector<SurfaceTriangle> triangles_;
    std::vector<std::int32_t> start_, around_, beyond_;
    std::vector<FeatureEdge> edges_;
    std::vector<double> size_, rest_;
};

}  // namespace kestralum
