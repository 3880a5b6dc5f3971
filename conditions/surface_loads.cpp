#include "conditions/surface_loads.h"

#include <algorithm>

namespace kestralum {

namespace {

// Calls use(face, point) for every integration point of the faces at rest.
template <typename Use>
void for_each_point(const Mesh& mesh, std::span<const ElementFace> faces, const Use& use) {
    FacePoints face;
    for (const ElementFace& of_element : faces) {
        face_points(mesh, of_element, {}, face);
        for (int p = 0; p < face.points; ++p) use(face, face.point[p]);
    }
}

void add_at_nodes(const FacePoints& face, const FacePoint& point, const Vec3& force,
                  std::span<double> nodal) {
    for (int i = 0; i < face.nodes.count; ++i)
        for (int c = 0; c < 3; ++c) nodal[3 * face.nodes.node[i] + c] += point.shape.N[i] * force[c];
}

}  // namespace

std::string wrong_value_on(const Mesh& mesh, std::span<const ElementFace> faces, const std::string& record,
                           const FieldExpression& field, double time, double least) {
    std::string first;
    for_each_point(mesh, faces, [&](const FacePoints&, const FacePoint& point) {
        if (first.empty()) first = wrong_value(record, field, point.rest.data(), time, least);
    });
    return first;
}

void add_traction(const Mesh& mesh, std::span<const ElementFace> faces,
                  const std::array<FieldExpression, 3>& traction, double time, std::span<double> nodal) {
    for_each_point(mesh, faces, [&](const FacePoints& face, const FacePoint& point) {
        Vec3 force;
        for (std::size_t c = 0; c < 3; ++c) force[c] = traction[c].at(point.rest.data(), time);
        add_at_nodes(face, point, times(norm(point.normal), force), nodal);
    });
}

void add_force(const Mesh& mesh, std::span<const ElementFace> faces, const Vec3& force,
               std::span<double> nodal) {
    double area = 0;
    for_each_point(mesh, faces,
                   [&](const FacePoints&, const FacePoint& point) { area += norm(point.normal); });
    for_each_point(mesh, faces, [&](const FacePoints& face, const FacePoint& point) {
        add_at_nodes(face, point, times(norm(point.normal) / area, force), nodal);
    });
}

void surface_springs(const Mesh& mesh, std::span<const ElementFace> faces, const FieldExpression& all,
                     const FieldExpression& normal, const AddBlock& add) {
    FacePoints face;
    std::array<double, 24 * 24> block;
    for (const ElementFace& of_element : faces) {
        face_points(mesh, of_element, {}, face);
        const std::size_t nodes = static_cast<std::size_t>(face.nodes.count), size = 3 * nodes;
        std::fill(block.begin(), block.end(), 0.0);
        for (int p = 0; p < face.points; ++p) {
            const FacePoint& point = face.point[p];
            const double area = norm(point.normal);
            const Vec3 n = unit(point.normal);
            const double everywhere = all.given() ? area * all.at(point.rest.data(), 0) : 0;
            const double along = normal.given() ? area * normal.at(point.rest.data(), 0) : 0;
            Mat3 k;
            for (std::size_t a = 0; a < 3; ++a)
                for (std::size_t b = 0; b < 3; ++b)
                    k[3 * a + b] = along * n[a] * n[b] + (a == b ? everywhere : 0);
            for (std::size_t r = 0; r < size; ++r)
                for (std::size_t c = 0; c < size; ++c)
                    block[r * size + c] +=
                        point.shape.N[r / 3] * point.shape.N[c / 3] * k[3 * (r % 3) + c % 3];
        }
        add(std::span(face.nodes.node).first(nodes), std::span(block).first(size * size));
    }
}

// With the shares w_i = ∫ N_i dA and W their sum, r_i from the centre c = Σ w_i x_i / W: the forces
// w_i (F/W + ω × r_i) have the resultant F and the moment Σ w_i r_i × (ω × r_i) = T ω about c, where
// T = Σ w_i (|r_i|² 1 - r_i r_iᵀ) and T ω = M + (point - c) × F.
std::string add_remote(const Mesh& mesh, std::span<const ElementFace> faces, const Vec3& point,
                       const Vec3& force, const Vec3& moment, std::span<double> nodal) {
    std::vector<double> share(mesh.node_num(), 0.0);
    for_each_point(mesh, faces, [&](const FacePoints& face, const FacePoint& at) {
        for (int i = 0; i < face.nodes.count; ++i)
            share[face.nodes.node[i]] += at.shape.N[i] * norm(at.normal);
    });
    double whole = 0;
    Vec3 centre{};
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        whole += share[n];
        centre = plus(centre, times(share[n], place_of(mesh, n)));
    }
    centre = times(1 / whole, centre);
    Mat3 T{};
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        const Vec3 r = minus(place_of(mesh, n), centre);
        for (std::size_t a = 0; a < 3; ++a)
            for (std::size_t b = 0; b < 3; ++b)
                T[3 * a + b] += share[n] * ((a == b ? dot(r, r) : 0) - r[a] * r[b]);
    }
    const Vec3 row[3] = {{T[0], T[1], T[2]}, {T[3], T[4], T[5]}, {T[6], T[7], T[8]}};
    const Vec3 cofactor[3] = {cross(row[1], row[2]), cross(row[2], row[0]), cross(row[0], row[1])};
    const double det = dot(row[0], cofactor[0]), size = T[0] + T[4] + T[8];
    if (!(whole > 0 && det > 1e-14 * size * size * size))
        return "its nodes lie on a line, they carry no moment about it";
    const Vec3 about = plus(moment, cross(minus(point, centre), force));
    Vec3 spin{};  // ω = T⁻¹ M', T symmetric
    for (std::size_t c = 0; c < 3; ++c) spin = plus(spin, times(about[c] / det, cofactor[c]));
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (share[n] == 0) continue;
        const Vec3 r = minus(place_of(mesh, n), centre);
        const Vec3 at_node = times(share[n], plus(times(1 / whole, force), cross(spin, r)));
        for (int c = 0; c < 3; ++c) nodal[3 * n + c] += at_node[c];
    }
    return {};
}

}  // namespace kestralum
