#include "app/orders/element_rule.h"

namespace kestralum {

namespace {

struct Gauss {
    std::vector<double> x, w;  // on 0 … 1
};

Gauss gauss(int n) {
    const auto both = [](std::initializer_list<std::pair<double, double>> halves) {
        Gauss out;
        for (const auto& [x, w] : halves)
            for (const double sign : {-1.0, 1.0})
                if (x != 0 || sign > 0) {
                    out.x.push_back(0.5 + 0.5 * sign * x);
                    out.w.push_back(0.5 * w);
                }
        return out;
    };
    if (n == 3) return both({{0, 8.0 / 9}, {std::sqrt(0.6), 5.0 / 9}});
    return both({{0.339981043584856264803, 0.652145154862546142627},
                 {0.861136311594052575224, 0.347854845137453857373}});
}

// Of one reference point: the shape functions and their derivatives to the reference coordinates.
struct Tabulated {
    std::array<double, most_nodes> N;
    double d[most_nodes][3];
    double weight;
};

// ξ in 0 … 1
Tabulated of_hexahedron(const Vec3& xi, double weight) {
    Tabulated out{};
    out.weight = weight;
    for (std::size_t i = 0; i < 8; ++i) {
        Vec3 f, slope;
        for (std::size_t c = 0; c < 3; ++c) {
            slope[c] = hexa_corner[i][c] ? 1 : -1;
            f[c] = hexa_corner[i][c] ? xi[c] : 1 - xi[c];
        }
        out.N[i] = f[0] * f[1] * f[2];
        for (std::size_t c = 0; c < 3; ++c) out.d[i][c] = slope[c] * f[(c + 1) % 3] * f[(c + 2) % 3];
    }
    return out;
}

// Volume coordinates L1 = 1 - ξ - η - ζ, L2 = ξ, L3 = η, L4 = ζ.
Tabulated of_tetrahedron(ElementKind kind, const Vec3& xi, double weight) {
    Tabulated out{};
    out.weight = weight;
    const std::array<double, 4> L{1 - xi[0] - xi[1] - xi[2], xi[0], xi[1], xi[2]};
    constexpr double slope[4][3] = {{-1, -1, -1}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const bool quadratic = kind == ElementKind::tetrahedron10;
    for (std::size_t i = 0; i < 4; ++i) {
        out.N[i] = quadratic ? L[i] * (2 * L[i] - 1) : L[i];
        for (std::size_t c = 0; c < 3; ++c) out.d[i][c] = (quadratic ? 4 * L[i] - 1 : 1) * slope[i][c];
    }
    for (std::size_t m = 0; m < 6 && quadratic; ++m) {
        const auto a = static_cast<std::size_t>(tetra10_edge[m][0]),
                   b = static_cast<std::size_t>(tetra10_edge[m][1]);
        out.N[4 + m] = 4 * L[a] * L[b];
        for (std::size_t c = 0; c < 3; ++c) out.d[4 + m][c] = 4 * (L[a] * slope[b][c] + L[b] * slope[a][c]);
    }
    return out;
}

std::vector<Tabulated> tabulate(ElementKind kind) {
    const bool hexahedron = kind == ElementKind::hexahedron;
    const Gauss g = gauss(kind == ElementKind::tetrahedron10 ? 4 : 3);
    std::vector<Tabulated> out;
    for (std::size_t i = 0; i < g.x.size(); ++i)
        for (std::size_t j = 0; j < g.x.size(); ++j)
            for (std::size_t k = 0; k < g.x.size(); ++k) {
                const double a = g.x[i], b = g.x[j], c = g.x[k], w = g.w[i] * g.w[j] * g.w[k];
                if (hexahedron)
                    out.push_back(of_hexahedron({a, b, c}, w));
                else  // the cube shrunk to a corner, then to an edge
                    out.push_back(of_tetrahedron(kind, {a, (1 - a) * b, (1 - a) * (1 - b) * c},
                                                 w * (1 - a) * (1 - a) * (1 - b)));
            }
    return out;
}

}  // namespace

Vec3 RulePoint::value(std::span<const double> v) const {
    Vec3 out{};
    for (std::size_t i = 0; i < nodes.size(); ++i)
        out = plus(out, times(N[i], triple(v, node_index(nodes[i]))));
    return out;
}

Mat3 RulePoint::gradient(std::span<const double> v) const {
    Mat3 H{};
    for (std::size_t i = 0; i < nodes.size(); ++i)
        for (std::size_t c = 0; c < 3; ++c)
            for (std::size_t d = 0; d < 3; ++d)
                H[3 * c + d] += v[3 * node_index(nodes[i]) + c] * dN[3 * i + d];
    return H;
}

void for_points(const Mesh& mesh, const std::function<void(const RulePoint&)>& at) {
    const std::vector<Tabulated> table = tabulate(mesh.element_type);
    const int nodes = mesh.node_per_element();
    std::array<double, 3 * most_nodes> x, dN;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto element = mesh.element(e);
        for (std::size_t i = 0; i < element.size(); ++i)
            for (std::size_t c = 0; c < 3; ++c) x[3 * i + c] = mesh.node(node_index(element[i]))[c];
        for (const Tabulated& t : table) {
            const double det = map_gradients(nodes, t.d, x.data(), dN.data());
            RulePoint point{element, e, t.N.data(), dN.data(), {}, t.weight * det};
            point.x = point.value(mesh.coordinates);
            at(point);
        }
    }
}

}  // namespace kestralum
