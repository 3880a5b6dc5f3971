// Pressure on faces that follow the displacements.
#include "conditions/surface_loads.h"

namespace kestralum {

void add_pressure(const Mesh& mesh, std::span<const ElementFace> faces, const FieldExpression& pressure,
                  double time, double factor, std::span<const double> u, std::span<double> nodal) {
    FacePoints face;
    for (const ElementFace& of_element : faces) {
        face_points(mesh, of_element, u, face);
        for (int p = 0; p < face.points; ++p) {
            const FacePoint& point = face.point[p];
            const double value = factor * pressure.at(point.rest.data(), time);
            for (int i = 0; i < face.nodes.count; ++i)
                for (int c = 0; c < 3; ++c)
                    nodal[3 * face.nodes.node[i] + c] -= value * point.shape.N[i] * point.normal[c];
        }
    }
}

// f_i = -p Σ w N_i t1 × t2 with t_a = Σ_j ∂N_j/∂ξ_a x_j, so that -∂f_i/∂u_j v = p Σ w N_i a_j × v with
// a_j = ∂N_j/∂ξ_2 t1 - ∂N_j/∂ξ_1 t2: skew in its directions. The transpose is that of N_j a_i with the other
// sign, the half of both ½ p Σ w (N_i a_j - N_j a_i) ×.
void pressure_stiffness(const Mesh& mesh, std::span<const ElementFace> faces, const FieldExpression& pressure,
                        double time, double factor, std::span<const double> u, const AddBlock& add) {
    FacePoints face;
    std::array<double, 24 * 24> block;
    for (const ElementFace& of_element : faces) {
        face_points(mesh, of_element, u, face);
        const std::size_t nodes = static_cast<std::size_t>(face.nodes.count), size = 3 * nodes;
        std::fill(block.begin(), block.end(), 0.0);
        for (int p = 0; p < face.points; ++p) {
            const FacePoint& point = face.point[p];
            const double half = factor * pressure.at(point.rest.data(), time) * point.weight / 2;
            std::array<Vec3, 8> a;
            for (std::size_t j = 0; j < nodes; ++j)
                a[j] = minus(times(point.shape.dN[j][1], point.tangent[0]),
                             times(point.shape.dN[j][0], point.tangent[1]));
            for (std::size_t i = 0; i < nodes; ++i)
                for (std::size_t j = 0; j < nodes; ++j) {
                    const Vec3 s =
                        times(half, minus(times(point.shape.N[i], a[j]), times(point.shape.N[j], a[i])));
                    double* k = block.data() + 3 * (i * size + j);
                    k[1] -= s[2];
                    k[2] += s[1];
                    k[size] += s[2];
                    k[size + 2] -= s[0];
                    k[2 * size] -= s[1];
                    k[2 * size + 1] += s[0];
                }
        }
        add(std::span(face.nodes.node).first(nodes), std::span(block).first(size * size));
    }
}

}  // namespace kestralum
