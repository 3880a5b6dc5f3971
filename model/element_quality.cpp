#include "model/element_quality.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

namespace kestralum {

namespace {

double determinant(const Vec3& a, const Vec3& b, const Vec3& c) {
    return dot(a, cross(b, c));
}

// Of the 10-node tetrahedron at the place L: with N_i = L_i (2 L_i - 1) at corners and 4 L_i L_j at
// mid-sides, ∂x/∂L_i = (4 L_i - 1) x_i + Σ_j 4 L_j x_ij.
double determinant_at(std::span<const double> x, const std::array<double, 4>& L) {
    std::array<Vec3, 4> slope;
    for (std::size_t i = 0; i < 4; ++i) slope[i] = times(4 * L[i] - 1, triple(x, i));
    for (std::size_t m = 0; m < 6; ++m) {
        const auto [i, j] = tetra10_edge[m];
        slope[i] = plus(slope[i], times(4 * L[j], triple(x, 4 + m)));
        slope[j] = plus(slope[j], times(4 * L[i], triple(x, 4 + m)));
    }
    return determinant(minus(slope[1], slope[0]), minus(slope[2], slope[0]), minus(slope[3], slope[0]));
}

// Cosine of the angle between two vectors; 1, the worst, where one has no length.
double cosine(const Vec3& a, const Vec3& b) {
    const double lengths = norm(a) * norm(b);
    return lengths > 0 ? dot(a, b) / lengths : 1.0;
}

// The corners that share an edge with each corner of a hexahedron, along each direction.
constexpr auto hexa_neighbour = [] {
    std::array<std::array<std::size_t, 3>, 8> table{};
    for (std::size_t k = 0; k < 8; ++k)
        for (std::size_t d = 0; d < 3; ++d)
            for (std::size_t n = 0; n < 8; ++n) {
                auto corner = hexa_corner[k];
                corner[d] = 1 - corner[d];
                if (hexa_corner[n] == corner) table[k][d] = n;
            }
    return table;
}();

// Largest cosine in the faces and, of a tetrahedron, between them: the smallest angle.
double largest_cosine(ElementKind kind, std::span<const double> x) {
    double largest = -1;
    std::array<Vec3, 4> normal;
    const int faces = face_table(kind).faces;
    for (int f = 0; f < faces; ++f) {
        const auto corner = face_corners(kind, f);
        const std::size_t n = corner.size();
        const auto at = [&](std::size_t k) { return triple(x, corner[k % n]); };
        for (std::size_t k = 0; k < n; ++k)
            largest = std::max(largest, cosine(minus(at(k + 1), at(k)), minus(at(k + n - 1), at(k))));
        if (kind == ElementKind::hexahedron) continue;
        normal[f] = cross(minus(at(1), at(0)), minus(at(2), at(0)));
        // face f lies opposite to corner f
        if (dot(normal[f], minus(triple(x, f), at(0))) > 0) normal[f] = times(-1, normal[f]);
    }
    for (std::size_t f = 0; f < 4 && kind != ElementKind::hexahedron; ++f)
        for (std::size_t g = 0; g < f; ++g) largest = std::max(largest, -cosine(normal[f], normal[g]));
    return std::min(largest, 1.0);
}

double edge_ratio(ElementKind kind, std::span<const double> x) {
    double shortest = std::numeric_limits<double>::infinity(), longest = 0;
    const auto add = [&](std::size_t a, std::size_t b) {
        const double length = norm(minus(triple(x, b), triple(x, a)));
        shortest = std::min(shortest, length);
        longest = std::max(longest, length);
    };
    if (kind == ElementKind::hexahedron) {
        for (std::size_t k = 0; k < 8; ++k)
            for (std::size_t d = 0; d < 3; ++d) add(k, hexa_neighbour[k][d]);
    } else {
        for (const auto& [a, b] : tetra10_edge) add(a, b);
    }
    return shortest > 0 ? longest / shortest : std::numeric_limits<double>::infinity();
}

}  // namespace

Determinants element_determinants(ElementKind kind, std::span<const double> x) {
    Determinants found{std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()};
    const auto add = [&](double value) {
        found.smallest = std::min(found.smallest, value);
        found.largest = std::max(found.largest, value);
    };
    if (kind == ElementKind::hexahedron) {
        for (std::size_t k = 0; k < 8; ++k) {
            std::array<Vec3, 3> slope;
            for (std::size_t d = 0; d < 3; ++d)
                slope[d] =
                    times(hexa_corner[k][d] ? -1 : 1, minus(triple(x, hexa_neighbour[k][d]), triple(x, k)));
            add(determinant(slope[0], slope[1], slope[2]));
        }
    } else if (kind == ElementKind::tetrahedron4) {
        const Vec3 first = triple(x, 0);
        add(determinant(minus(triple(x, 1), first), minus(triple(x, 2), first), minus(triple(x, 3), first)));
    } else {
        for (std::size_t i = 0; i < 4; ++i) {
            std::array<double, 4> L{};
            L[i] = 1;
            add(determinant_at(x, L));
        }
        for (const auto& [i, j] : tetra10_edge) {
            std::array<double, 4> L{};
            L[i] = L[j] = 0.5;
            add(determinant_at(x, L));
        }
    }
    return found;
}

ElementQuality element_quality(ElementKind kind, std::span<const double> x) {
    const auto [smallest, largest] = element_determinants(kind, x);
    return {std::acos(largest_cosine(kind, x)) * 180 / std::numbers::pi,
            largest > 0 ? smallest / largest : 0.0, edge_ratio(kind, x)};
}

}  // namespace kestralum
