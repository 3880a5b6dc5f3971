#include "model/free_faces.h"

#include <algorithm>
#include <cmath>

#include "model/face_buckets.h"

namespace kestralum {

std::vector<ElementFace> free_faces(const Mesh& mesh, const Progress* progress) {
    const auto& [start, keys] = bucket_faces(mesh, progress);
    auto stopped = [&](std::size_t turn) { return turn % 4096 == 0 && progress && progress->cancelled(); };
    std::vector<ElementFace> faces;
    for (std::size_t n = 0; n + 1 < start.size(); ++n) {
        if (stopped(n)) return {};
        for (std::int64_t a = start[n]; a < start[n + 1]; ++a) {
            bool shared = false;
            for (std::int64_t b = start[n]; b < start[n + 1] && !shared; ++b)
                shared = a != b && keys[a].same_corners(keys[b]);
            if (!shared) faces.push_back({keys[a].element, keys[a].face});
        }
    }
    std::sort(faces.begin(), faces.end(), [](const ElementFace& a, const ElementFace& b) {
        return a.element != b.element ? a.element < b.element : a.face < b.face;
    });
    return faces;
}

Vec3 area_vector(const Mesh& mesh, const ElementFace& face) {
    const auto local = outward_triangles(mesh.element_type, face.face);
    const auto element = mesh.element(face.element);
    const auto corner = [&](std::size_t k) { return place_of(mesh, node_index(element[local[k]])); };
    Vec3 sum{};
    for (std::size_t k = 0; k + 2 < local.size(); k += 3) {
        const Vec3 a = corner(k);
        sum = plus(sum, cross(minus(corner(k + 1), a), minus(corner(k + 2), a)));
    }
    return times(0.5, sum);
}

void update_node_normals(Mesh& mesh, const Progress* progress) {
    mesh.node_n_dir.assign(mesh.coordinates.size(), 0.0);
    for (const ElementFace& face : free_faces(mesh, progress)) {
        const std::int32_t* element = mesh.element(face.element).data();
        const auto triangles = outward_triangles(mesh.element_type, face.face);
        const Vec3 normal = area_vector(mesh, face);
        // The whole face counts at each of its nodes: its triangles do not meet all of them equally.
        std::uint32_t met = 0;
        for (int local : triangles) {
            if (met >> local & 1u) continue;
            met |= 1u << local;
            double* d = mesh.node_n_dir.data() + 3 * node_index(element[local]);
            for (std::size_t k = 0; k < 3; ++k) d[k] += normal[k];
        }
    }
    for (std::size_t n = 0; n + 2 < mesh.node_n_dir.size(); n += 3) {
        double* d = &mesh.node_n_dir[n];
        const double length = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
        if (length > 0)
            for (int k = 0; k < 3; ++k) d[k] /= length;
    }
}

namespace {

void add_triangles(const Mesh& mesh, const ElementFace& face, std::vector<SurfaceTriangle>& out) {
    const auto element = mesh.element(face.element);
    const auto local = outward_triangles(mesh.element_type, face.face);
    const auto node = [&](std::size_t k) { return static_cast<std::int32_t>(node_index(element[local[k]])); };
    for (std::size_t k = 0; k + 2 < local.size(); k += 3)
        out.push_back({{node(k), node(k + 1), node(k + 2)}, mesh.p_ele_part_id[face.element]});
}

// Whether an element but `except` has all these nodes (numbers).
bool shared_by_another(const Mesh& mesh, const NodeElements& node_elements,
                       std::span<const std::int32_t> nodes, std::int32_t except) {
    for (const std::int32_t e : node_elements.of(node_index(nodes[0]))) {
        const auto element = mesh.element(e);
        if (e != except && std::all_of(nodes.begin(), nodes.end(), [&](std::int32_t n) {
                return std::find(element.begin(), element.end(), n) != element.end();
            }))
            return true;
    }
    return false;
}

}  // namespace

std::vector<SurfaceTriangle> surface_triangles(const Mesh& mesh) {
    std::vector<SurfaceTriangle> out;
    for (const ElementFace& face : free_faces(mesh)) add_triangles(mesh, face, out);
    return out;
}

std::vector<ElementFace> free_faces_of(const Mesh& mesh, const NodeElements& node_elements,
                                       std::span<const char> chosen) {
    std::vector<std::int32_t> elements;
    for (std::size_t n = 0; n < chosen.size(); ++n)
        if (chosen[n])
            elements.insert(elements.end(), node_elements.of(n).begin(), node_elements.of(n).end());
    std::sort(elements.begin(), elements.end());
    elements.erase(std::unique(elements.begin(), elements.end()), elements.end());
    std::vector<ElementFace> out;
    std::vector<std::int32_t> corners;
    for (const std::int32_t e : elements)
        for (int f = 0; f < face_table(mesh.element_type).faces; ++f) {
            const auto element = mesh.element(e);
            const auto local = outward_triangles(mesh.element_type, f);
            if (!std::all_of(local.begin(), local.end(),
                             [&](int k) { return chosen[node_index(element[k])] != 0; }))
                continue;
            corners.clear();
            for (int k : face_corners(mesh.element_type, f)) corners.push_back(element[k]);
            if (!shared_by_another(mesh, node_elements, corners, e)) out.push_back({e, f});
        }
    return out;
}

std::vector<SurfaceTriangle> surface_triangles_of(const Mesh& mesh, const NodeElements& node_elements,
                                                  std::span<const char> chosen) {
    std::vector<SurfaceTriangle> out;
    for (const ElementFace& face : free_faces_of(mesh, node_elements, chosen)) add_triangles(mesh, face, out);
    return out;
}

std::vector<std::int32_t> surface_nodes(std::span<const SurfaceTriangle> surface, std::int32_t node_num) {
    std::vector<char> on(node_num, 0);
    for (const SurfaceTriangle& triangle : surface)
        for (std::int32_t n : triangle.node) on[n] = 1;
    std::vector<std::int32_t> nodes;
    for (std::int32_t n = 0; n < node_num; ++n)
        if (on[n]) nodes.push_back(n);
    return nodes;
}

}  // namespace kestralum
