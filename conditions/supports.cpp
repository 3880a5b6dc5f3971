#include "conditions/supports.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numbers>

#include "model/face_points.h"
#include "model/free_faces.h"
#include "model/mesh_sets.h"
#include "model/selection.h"

namespace kestralum {

namespace {

// Normal of the interpolated face at its k-th node, out of the element.
Vec3 normal_at(const Mesh& mesh, const FaceNodes& face, int k) {
    constexpr double quadrangle[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
    constexpr double triangle[6][2] = {{0, 0}, {1, 0}, {0, 1}, {0.5, 0}, {0.5, 0.5}, {0, 0.5}};
    const double* at = face.corners == 4 ? quadrangle[k] : triangle[k];
    const FaceShape shape = face_shape(face.count, at[0], at[1]);
    Vec3 tangent[2]{};
    for (int i = 0; i < face.count; ++i)
        for (std::size_t c = 0; c < 2; ++c)
            tangent[c] = plus(tangent[c], times(shape.dN[i][c], place_of(mesh, face.node[i])));
    return cross(tangent[0], tangent[1]);
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
        const FaceNodes nodes = face_nodes(mesh, face);
        const double area = norm(area_vector(mesh, face));
        for (int k = 0; k < nodes.count; ++k) add_normal(out[nodes.node[k]], normal_at(mesh, nodes, k), area);
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
