#include "model/face_points.h"

#include <cmath>

namespace kestralum {

namespace {

// The points of the reference face with their shape functions.
struct FaceRule {
    int points = 0;
    std::array<FaceShape, 7> shape{};
    std::array<double, 7> weight{};

    void add(int nodes, double r, double s, double w) {
        shape[points] = face_shape(nodes, r, s);
        weight[points++] = w;
    }
};

FaceRule quadrangle_rule() {
    const double gauss = 1 / std::sqrt(3.0);
    FaceRule rule;
    for (const double r : {-gauss, gauss})
        for (const double s : {-gauss, gauss}) rule.add(4, r, s, 1);
    return rule;
}

FaceRule triangle_rule(int nodes) {
    FaceRule rule;
    rule.add(nodes, 1.0 / 3, 1.0 / 3, 9.0 / 80);
    for (const double sign : {-1.0, 1.0}) {
        const double root = std::sqrt(15.0), a = (6 + sign * root) / 21, b = 1 - 2 * a;
        const double weight = (155 + sign * root) / 2400;
        rule.add(nodes, a, a, weight);
        rule.add(nodes, b, a, weight);
        rule.add(nodes, a, b, weight);
    }
    return rule;
}

const FaceRule& rule_of(int nodes) {
    static const FaceRule quadrangle = quadrangle_rule(), triangle3 = triangle_rule(3),
                          triangle6 = triangle_rule(6);
    return nodes == 4 ? quadrangle : nodes == 3 ? triangle3 : triangle6;
}

}  // namespace

FaceNodes face_nodes(const Mesh& mesh, const ElementFace& face) {
    FaceNodes out;
    const auto element = mesh.element(face.element);
    const auto corners = face_corners(mesh.element_type, face.face);
    out.corners = static_cast<int>(corners.size());
    const auto add = [&](int local) {
        out.node[out.count++] = static_cast<std::int32_t>(node_index(element[local]));
    };
    for (const int local : corners) add(local);
    if (mesh.element_type == ElementKind::tetrahedron10)
        for (std::size_t k = 0; k < 3; ++k) add(tetra10_middle(corners[k], corners[(k + 1) % 3]));
    return out;
}

FaceShape face_shape(int count, double r, double s) {
    FaceShape out;
    if (count == 4) {
        constexpr double corner[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
        for (int i = 0; i < 4; ++i) {
            const double a = corner[i][0], b = corner[i][1];
            out.N[i] = 0.25 * (1 + a * r) * (1 + b * s);
            out.dN[i] = {0.25 * a * (1 + b * s), 0.25 * b * (1 + a * r)};
        }
        return out;
    }
    const double t = 1 - r - s;
    if (count == 3) {
        out.N = {t, r, s};
        out.dN = {{{-1, -1}, {1, 0}, {0, 1}}};
        return out;
    }
    out.N = {t * (2 * t - 1), r * (2 * r - 1), s * (2 * s - 1), 4 * t * r, 4 * r * s, 4 * s * t};
    out.dN = {{{1 - 4 * t, 1 - 4 * t},
               {4 * r - 1, 0},
               {0, 4 * s - 1},
               {4 * (t - r), -4 * r},
               {4 * s, 4 * r},
               {-4 * s, 4 * (t - s)}}};
    return out;
}

void face_points(const Mesh& mesh, const ElementFace& face, std::span<const double> u, FacePoints& out) {
    out.nodes = face_nodes(mesh, face);
    const int nodes = out.nodes.count;
    const FaceRule& rule = rule_of(nodes);
    out.points = rule.points;
    std::array<Vec3, most_face_nodes> rest, x;
    for (int i = 0; i < nodes; ++i) {
        rest[i] = place_of(mesh, out.nodes.node[i]);
        x[i] = u.empty() ? rest[i] : plus(rest[i], triple(u, out.nodes.node[i]));
    }
    for (int p = 0; p < rule.points; ++p) {
        FacePoint& point = out.point[p];
        point.shape = rule.shape[p];
        point.rest = point.x = point.tangent[0] = point.tangent[1] = {};
        for (int i = 0; i < nodes; ++i) {
            point.rest = plus(point.rest, times(point.shape.N[i], rest[i]));
            point.x = plus(point.x, times(point.shape.N[i], x[i]));
            for (std::size_t c = 0; c < 2; ++c)
                point.tangent[c] = plus(point.tangent[c], times(point.shape.dN[i][c], x[i]));
        }
        point.weight = rule.weight[p];
        point.normal = times(point.weight, cross(point.tangent[0], point.tangent[1]));
    }
}

double face_area(const Mesh& mesh, const ElementFace& face) {
    FacePoints points;
    face_points(mesh, face, {}, points);
    double area = 0;
    for (int p = 0; p < points.points; ++p) area += norm(points.point[p].normal);
    return area;
}

}  // namespace kestralum
