#include "conditions/supports.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

#include "model/free_faces.h"
#include "model/mesh_sets.h"
#include "model/selection.h"

namespace kestralum {

namespace {

// Local nodes of a face around its corners: of three or four corners, with the middles behind them.
struct FaceNodes {
    int corners = 0;
    std::array<std::int32_t, 8> node{};  // 0-based
    int count = 0;
};

FaceNodes nodes_of(const Mesh& mesh, const ElementFace& face) {
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

// Normal of the interpolated face at its k-th node, in the winding of its corners.
Vec3 normal_at(const Mesh& mesh, const FaceNodes& face, int k) {
    const auto x = [&](int i) { return place_of(mesh, face.node[i % face.count]); };
    if (face.count != 6) {
        const int n = face.corners;
        return cross(minus(x((k + 1) % n), x(k)), minus(x((k + n - 1) % n), x(k)));
    }
    // corners 0 1 2 at (0, 0) (1, 0) (0, 1), middles 3 4 5 behind their first corner
    constexpr double at[6][2] = {{0, 0}, {1, 0}, {0, 1}, {0.5, 0}, {0.5, 0.5}, {0, 0.5}};
    const double r = at[k][0], s = at[k][1], t = 1 - r - s;
    const double dr[6] = {1 - 4 * t, 4 * r - 1, 0, 4 * (t - r), 4 * s, -4 * s},
                 ds[6] = {1 - 4 * t, 0, 4 * s - 1, -4 * r, 4 * r, 4 * (t - s)};
    Vec3 a{}, b{};
    for (int i = 0; i < 6; ++i) {
        a = plus(a, times(dr[i], x(i)));
        b = plus(b, times(ds[i], x(i)));
    }
    return cross(a, b);
}

// Directions that faces meet a node in: faces that turn by little count as one.
void add_normal(std::vector<Vec3>& sums, const Vec3& normal, double area) {
    const double least = std::cos(one_face_degrees * std::numbers::pi / 180);
    const double size = norm(normal);
    if (!(size > 0)) return;
    for (Vec3& sum : sums)
        if (dot(sum, normal) >= least * norm(sum) * size) {
            sum = plus(sum, times(area / size, normal));
            return;
        }
    sums.push_back(times(area / size, normal));
}

// Per node the normals of the support's faces.
std::map<std::int32_t, std::vector<Vec3>> node_normals(const Mesh& mesh, std::span<const ElementFace> faces) {
    std::map<std::int32_t, std::vector<Vec3>> out;
    for (const ElementFace& face : faces) {
        const FaceNodes nodes = nodes_of(mesh, face);
        const Vec3 outward = area_vector(mesh, face);
        for (int k = 0; k < nodes.count; ++k) {
            const Vec3 n = normal_at(mesh, nodes, k);
            add_normal(out[nodes.node[k]], dot(n, outward) < 0 ? times(-1, n) : n, norm(outward));
        }
    }
    return out;
}

Vec3 axis_vector(std::int32_t axis) {
    Vec3 out{};
    out[axis] = 1;
    return out;
}

// A direction that is an axis but for rounding as that axis: such a node needs no axes of its own.
Vec3 snapped(const Vec3& v) {
    constexpr double rounding = 1e-12;
    for (std::int32_t c = 0; c < 3; ++c)
        if (norm(minus(times(v[c], axis_vector(c)), v)) < rounding) return axis_vector(c);
    return v;
}

// Adds what one record holds; false where it has no normal.
bool add_record(const BoundaryCondition& record, std::int32_t number, const Mesh& mesh,
                const NodeElements& node_elements, std::vector<HeldDirection>& held) {
    const std::vector<std::int32_t> nodes = select_nodes(record, mesh);
    for (const std::int32_t n : nodes)
        for (std::int32_t c = 0; c < 3; ++c)
            if (record.options.fixed[c]) held.push_back({n, number, axis_vector(c), c});
    if (!record.options.normal || nodes.empty()) return true;
    if (record.set_name.empty() && record.kind != Selection::volume) {
        for (const std::int32_t n : nodes) held.push_back({n, number, axis_vector(record.axis), -1});
        return true;
    }
    const auto normals = node_normals(mesh, support_faces(record, mesh, node_elements));
    for (const auto& [node, sums] : normals)
        for (const Vec3& sum : sums) held.push_back({node, number, snapped(unit(sum)), -1});
    return !normals.empty();
}

}  // namespace

std::vector<ElementFace> support_faces(const BoundaryCondition& record, const Mesh& mesh,
                                       const NodeElements& node_elements) {
    const MeshSet* set = record.set_name.empty() ? nullptr : find_set(mesh, record.set_name);
    if (set && !set->faces.empty()) return set->faces;
    std::vector<char> chosen(mesh.node_num(), 0);
    for (const std::int32_t n : select_nodes(record, mesh)) chosen[n] = 1;
    return free_faces_of(mesh, node_elements, chosen);
}

HeldDirections find_held_directions(std::span<const BoundaryCondition> records, const Mesh& mesh,
                                    const NodeElements& node_elements) {
    HeldDirections out;
    for (std::size_t r = 0; r < records.size(); ++r)
        if (records[r].options.given &&
            !add_record(records[r], static_cast<std::int32_t>(r), mesh, node_elements, out.held))
            out.error =
                "support " + records[r].name + ": fix=normal: no face has all its nodes in the support";
    std::erase_if(out.held, [&](const HeldDirection& h) { return !node_elements.any(h.node); });
    std::ranges::stable_sort(out.held, [](const HeldDirection& a, const HeldDirection& b) {
        return a.node != b.node ? a.node < b.node : a.axis >= 0 && b.axis < 0;
    });
    return out;
}

}  // namespace kestralum
