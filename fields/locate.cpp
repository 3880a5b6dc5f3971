#include "fields/locate.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kestralum {

namespace {

constexpr double margin = 1e-6;  // of reference coordinates

// N, and ∂N/∂(reference coordinates) into d.
void shapes(ElementKind kind, const Vec3& at, double* N, double (*d)[3]) {
    if (kind == ElementKind::hexahedron) {
        for (int i = 0; i < 8; ++i) {
            double f[3], g[3];
            for (int c = 0; c < 3; ++c) {
                f[c] = hexa_corner[i][c] ? at[c] : 1 - at[c];
                g[c] = hexa_corner[i][c] ? 1 : -1;
            }
            N[i] = f[0] * f[1] * f[2];
            d[i][0] = g[0] * f[1] * f[2];
            d[i][1] = f[0] * g[1] * f[2];
            d[i][2] = f[0] * f[1] * g[2];
        }
        return;
    }
    const double L[4] = {1 - at[0] - at[1] - at[2], at[0], at[1], at[2]};
    const auto slope = [](int node, int c) { return node == 0 ? -1.0 : node == c + 1 ? 1.0 : 0.0; };
    const bool quadratic = kind == ElementKind::tetrahedron10;
    for (int i = 0; i < 4; ++i) {
        N[i] = quadratic ? L[i] * (2 * L[i] - 1) : L[i];
        for (int c = 0; c < 3; ++c) d[i][c] = (quadratic ? 4 * L[i] - 1 : 1) * slope(i, c);
    }
    for (int m = 0; m < 6 && quadratic; ++m) {
        const auto [a, b] = tetra10_edge[m];
        N[4 + m] = 4 * L[a] * L[b];
        for (int c = 0; c < 3; ++c) d[4 + m][c] = 4 * (L[a] * slope(b, c) + L[b] * slope(a, c));
    }
}

// How far outside the element reference coordinates are; 0 inside.
double beyond(ElementKind kind, const Vec3& at) {
    double most = 0;
    for (const double a : at) most = std::max(most, -a);
    if (kind != ElementKind::hexahedron) return std::max(most, at[0] + at[1] + at[2] - 1);
    for (const double a : at) most = std::max(most, a - 1);
    return most;
}

// Reference coordinates of a place in element e; false where Newton's method finds none.
bool invert_map(const Mesh& mesh, std::int32_t e, const Vec3& place, Vec3& at) {
    const auto nodes = mesh.element(e);
    const ElementKind kind = mesh.element_type;
    double x[3 * most_nodes], N[most_nodes], d[most_nodes][3];
    for (std::size_t k = 0; k < nodes.size(); ++k) std::copy_n(mesh.node(node_index(nodes[k])), 3, x + 3 * k);
    at.fill(kind == ElementKind::hexahedron ? 0.5 : 0.25);
    for (int iteration = 0; iteration < 40; ++iteration) {
        shapes(kind, at, N, d);
        Vec3 left = place;
        for (std::size_t k = 0; k < nodes.size(); ++k)
            for (std::size_t c = 0; c < 3; ++c) left[c] -= N[k] * x[3 * k + c];
        double J[9], inverse[9];
        jacobian(static_cast<int>(nodes.size()), d, x, J);
        if (!(std::abs(invert3(J, inverse)) > 0)) return false;
        Vec3 step{};  // left = stepᵀ J
        for (std::size_t c = 0; c < 3; ++c)
            for (std::size_t k = 0; k < 3; ++k) step[c] += left[k] * inverse[3 * k + c];
        const double length = norm(step);
        if (!(length < 1e6)) return false;
        at = plus(at, times(length > 2 ? 2 / length : 1, step));  // a place far off may throw it anywhere
        if (length < 1e-13) return true;
        if (iteration > 8 && length < 1e-10) return true;  // rounding of large coordinates
    }
    return false;
}

}  // namespace

void shape_functions(ElementKind kind, const Vec3& at, double* N) {
    double unused[most_nodes][3];
    shapes(kind, at, N, unused);
}

std::size_t Locator::cell_of(const Vec3& place, bool upper) const {
    std::size_t index = 0;
    for (std::size_t c = 3; c-- > 0;) {
        const double at = std::floor((place[c] - low_[c]) / size_[c]);
        const double last = static_cast<double>(cells_[c] - 1);
        const double inside = std::clamp(std::isnan(at) ? (upper ? last : 0.0) : at, 0.0, last);
        index = index * cells_[c] + static_cast<std::size_t>(inside);
    }
    return index;
}

Locator::Locator(const Mesh& mesh) : mesh_(mesh) {
    const std::int32_t elements = mesh.element_num();
    std::vector<std::array<Vec3, 2>> box(elements);
    Vec3 low, high, mean{};
    low.fill(std::numeric_limits<double>::infinity());
    high.fill(-std::numeric_limits<double>::infinity());
    // a curved side may bulge beyond its nodes
    const double wider = mesh.element_type == ElementKind::tetrahedron10 ? 0.25 : 1e-5;
    for (std::int32_t e = 0; e < elements; ++e) {
        auto& [from, to] = box[e];
        from = to = place_of(mesh, node_index(mesh.element(e)[0]));
        for (const std::int32_t n : mesh.element(e))
            for (std::size_t c = 0; c < 3; ++c) {
                from[c] = std::min(from[c], mesh.node(node_index(n))[c]);
                to[c] = std::max(to[c], mesh.node(node_index(n))[c]);
            }
        const double more = wider * norm(minus(to, from));
        for (std::size_t c = 0; c < 3; ++c) {
            mean[c] += (to[c] - from[c]) / elements;
            from[c] -= more;
            to[c] += more;
            low[c] = std::min(low[c], from[c]);
            high[c] = std::max(high[c], to[c]);
        }
    }
    if (elements == 0) low = high = {};
    low_ = low;
    constexpr double most_cells = 512;  // along one direction
    for (std::size_t c = 0; c < 3; ++c) {
        const double extent = high[c] - low[c];
        const double wanted = mean[c] > 0 ? extent / mean[c] : 1;
        cells_[c] = static_cast<std::int64_t>(std::clamp(wanted, 1.0, most_cells));
        size_[c] = extent > 0 ? extent / static_cast<double>(cells_[c]) : 1;
    }
    while (cells_[0] * cells_[1] * cells_[2] > 4 * std::int64_t{elements} + 8)
        for (std::size_t c = 0; c < 3; ++c) {  // sparse bodies
            const std::int64_t half = (cells_[c] + 1) / 2;
            size_[c] *= static_cast<double>(cells_[c]) / static_cast<double>(half);
            cells_[c] = half;
        }
    const auto visit = [&](std::int32_t e, const auto& take) {
        std::array<std::int64_t, 3> first, last;
        std::size_t a = cell_of(box[e][0], false), b = cell_of(box[e][1], true);
        for (std::size_t c = 0; c < 3; ++c) {
            first[c] = static_cast<std::int64_t>(a % cells_[c]);
            last[c] = static_cast<std::int64_t>(b % cells_[c]);
            a /= cells_[c];
            b /= cells_[c];
        }
        for (std::int64_t k = first[2]; k <= last[2]; ++k)
            for (std::int64_t j = first[1]; j <= last[1]; ++j)
                for (std::int64_t i = first[0]; i <= last[0]; ++i) take(i + cells_[0] * (j + cells_[1] * k));
    };
    start_.assign(cells_[0] * cells_[1] * cells_[2] + 1, 0);
    for (std::int32_t e = 0; e < elements; ++e) visit(e, [&](std::int64_t cell) { ++start_[cell + 1]; });
    for (std::size_t k = 1; k < start_.size(); ++k) start_[k] += start_[k - 1];
    elements_.resize(start_.back());
    std::vector<std::int64_t> next(start_.begin(), start_.end() - 1);
    for (std::int32_t e = 0; e < elements; ++e)
        visit(e, [&](std::int64_t cell) { elements_[next[cell]++] = e; });
}

Location Locator::find(const Vec3& place) const {
    Location best;
    double least = margin;
    const std::size_t cell = cell_of(place, false);
    for (std::int64_t k = start_[cell]; k < start_[cell + 1]; ++k) {
        Vec3 at;
        if (!invert_map(mesh_, elements_[k], place, at)) continue;
        const double out = beyond(mesh_.element_type, at);
        if (out < least) {
            least = out;
            best = {elements_[k], at};
        }
        if (out == 0) break;
    }
    return best;
}

void interpolate(const Mesh& mesh, const Location& where, std::span<const double> nodal, int components,
                 double* out) {
    double N[most_nodes];
    shape_functions(mesh.element_type, where.at, N);
    std::fill_n(out, components, 0.0);
    const auto nodes = mesh.element(where.element);
    for (std::size_t k = 0; k < nodes.size(); ++k)
        for (int c = 0; c < components; ++c)
            out[c] += N[k] * nodal[std::size_t(components) * node_index(nodes[k]) + c];
}

std::vector<LinePoint> line_points(const Locator& locator, const Vec3& from, const Vec3& to, int count) {
    std::vector<LinePoint> out;
    const Vec3 along = minus(to, from);
    for (int k = 0; k < count; ++k) {
        const double share = count > 1 ? static_cast<double>(k) / (count - 1) : 0;
        LinePoint point;
        point.place = k + 1 == count && k > 0 ? to : plus(from, times(share, along));
        point.distance = share * norm(along);
        point.where = locator.find(point.place);
        out.push_back(point);
    }
    return out;
}

}  // namespace kestralum
