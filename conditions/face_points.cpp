#include <cmath>

#include "conditions/surface_loads.h"

namespace kestralum {

namespace {

// Shape functions, their derivatives and the weights at the points of the reference face.
struct FaceRule {
    int nodes = 0, points = 0;
    std::array<std::array<double, 8>, 7> N{};
    std::array<std::array<std::array<double, 2>, 8>, 7> dN{};
    std::array<double, 7> weight{};
};

FaceRule quadrangle_rule() {
    constexpr double corner[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
    const double gauss = 1 / std::sqrt(3.0);
    FaceRule rule{4, 4};
    for (std::size_t p = 0; p < 4; ++p) {
        rule.weight[p] = 1;
        for (std::size_t i = 0; i < 4; ++i) {
            const double u = 1 + gauss * corner[p][0] * corner[i][0],
                         v = 1 + gauss * corner[p][1] * corner[i][1];
            rule.N[p][i] = u * v / 4;
            rule.dN[p][i] = {corner[i][0] * v / 4, corner[i][1] * u / 4};
        }
    }
    return rule;
}

// Linear or quadratic triangle at the area coordinates L.
void add_triangle_point(FaceRule& rule, const std::array<double, 3>& L, double weight) {
    constexpr double slope[3][2] = {{-1, -1}, {1, 0}, {0, 1}};  // ∂L/∂(L1 L2)
    const std::size_t p = rule.points++;
    rule.weight[p] = weight / 2;
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t j = (i + 1) % 3;
        const bool quadratic = rule.nodes == 6;
        rule.N[p][i] = quadratic ? L[i] * (2 * L[i] - 1) : L[i];
        rule.N[p][3 + i] = quadratic ? 4 * L[i] * L[j] : 0;
        for (std::size_t c = 0; c < 2; ++c) {
            rule.dN[p][i][c] = slope[i][c] * (quadratic ? 4 * L[i] - 1 : 1);
            rule.dN[p][3 + i][c] = quadratic ? 4 * (slope[i][c] * L[j] + L[i] * slope[j][c]) : 0;
        }
    }
}

FaceRule triangle_rule(int nodes) {
    FaceRule rule{nodes, 0};
    add_triangle_point(rule, {1.0 / 3, 1.0 / 3, 1.0 / 3}, 9.0 / 40);
    for (const double sign : {-1.0, 1.0}) {
        const double root = std::sqrt(15.0), a = (6 + sign * root) / 21;
        for (std::size_t i = 0; i < 3; ++i) {
            std::array<double, 3> L{a, a, a};
            L[i] = 1 - 2 * a;
            add_triangle_point(rule, L, (155 + sign * root) / 1200);
        }
    }
    return rule;
}

const FaceRule& rule_of(ElementKind kind) {
    static const FaceRule quadrangle = quadrangle_rule(), triangle3 = triangle_rule(3),
                          triangle6 = triangle_rule(6);
    if (kind == ElementKind::tetrahedron4) return triangle3;
    return kind == ElementKind::tetrahedron10 ? triangle6 : quadrangle;
}

}  // namespace

void face_points(const Mesh& mesh, const ElementFace& face, std::span<const double> u, FacePoints& out) {
    const FaceRule& rule = rule_of(mesh.element_type);
    const auto element = mesh.element(face.element);
    const auto corner = face_corners(mesh.element_type, face.face);
    out.nodes = rule.nodes;
    out.points = rule.points;
    std::array<Vec3, 8> rest, x;
    for (std::size_t i = 0; i < static_cast<std::size_t>(rule.nodes); ++i) {
        const std::size_t corners = corner.size(), k = i % corners;
        const int local = i < corners ? corner[i] : tetra10_middle(corner[k], corner[(k + 1) % corners]);
        out.node[i] = static_cast<std::int32_t>(node_index(element[local]));
        rest[i] = place_of(mesh, out.node[i]);
        x[i] = u.empty() ? rest[i] : plus(rest[i], triple(u, out.node[i]));
    }
    for (int p = 0; p < rule.points; ++p) {
        FacePoint& point = out.point[p];
        point.N = rule.N[p];
        point.dN = rule.dN[p];
        point.rest = point.x = point.tangent[0] = point.tangent[1] = {};
        for (int i = 0; i < rule.nodes; ++i) {
            point.rest = plus(point.rest, times(point.N[i], rest[i]));
            point.x = plus(point.x, times(point.N[i], x[i]));
            for (std::size_t c = 0; c < 2; ++c)
                point.tangent[c] = plus(point.tangent[c], times(point.dN[i][c], x[i]));
        }
        point.weight = rule.weight[p];
        point.normal = times(point.weight, cross(point.tangent[0], point.tangent[1]));
    }
}

}  // namespace kestralum
