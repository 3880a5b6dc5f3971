#include "system/diagonals.h"

#include <algorithm>

#include "elements/linear_element.h"

namespace kestralum {

namespace {

constexpr std::int32_t chunk_elements = 16384;

struct ElementDiagonals {
    double K[3 * most_nodes], M[most_nodes];  // N/m, kg
    double mass = 0;                          // kg
    double stiffness = 0;                     // Σ of the entries between free degrees of freedom, N/m
    bool sound = false;
};

// K_ii = Σ w [(λ + 2G) d_i² + G (d_j² + d_k²)] with d the gradient of the node's shape function.
void find_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                    double* K) {
    std::fill_n(K, 3 * type.nodes, 0.0);
    for (int p = 0; p < type.points; ++p)
        for (int i = 0; i < type.nodes; ++i) {
            const double* d = points.dN.data() + 3 * (type.nodes * p + i);
            const double xx = d[0] * d[0], yy = d[1] * d[1], zz = d[2] * d[2];
            const double w = points.weight[p];
            K[3 * i] += w * (D.a * xx + D.g * (yy + zz));
            K[3 * i + 1] += w * (D.a * yy + D.g * (zz + xx));
            K[3 * i + 2] += w * (D.a * zz + D.g * (xx + yy));
        }
}

// Σ of Ke between the free degrees of freedom of an element that has others too.
double free_stiffness(const ElementType& type, const ElementPoints& points, const IsotropicModuli& D,
                      std::span<const std::int32_t> element, std::span<const std::int32_t> dof_map) {
    const int dofs = 3 * type.nodes;
    bool free[3 * most_nodes];
    for (int d = 0; d < dofs; ++d) free[d] = dof_map[3 * node_index(element[d / 3]) + d % 3] >= 0;
    if (std::all_of(free, free + dofs, [](bool f) { return f; })) return 0;
    double ke[9 * most_nodes * most_nodes];
    element_stiffness(type, points, D, ke);
    double sum = 0;
    for (int a = 0; a < dofs; ++a)
        for (int b = 0; b < dofs; ++b)
            if (free[a] && free[b]) sum += ke[a * dofs + b];
    return sum;
}

void find(const Mesh& mesh, const ElementType& type, std::int32_t e, const PartMaterial& material,
          std::span<const std::int32_t> dof_map, ElementDiagonals& out) {
    ElementPoints points;
    out.sound = evaluate_points(type, mesh, e, points);
    if (!out.sound) return;
    find_stiffness(type, points, material.D, out.K);
    out.stiffness = free_stiffness(type, points, material.D, mesh.element(e), dof_map);
    double me[most_nodes * most_nodes];
    type.mass(points.x.data(), me);
    out.mass = 0;
    for (int k = 0; k < type.nodes * type.nodes; ++k) out.mass += me[k];
    out.mass *= material.density;
    for (int i = 0; i < type.nodes; ++i) out.M[i] = material.density * me[i * (type.nodes + 1)];
}

}  // namespace

MatrixDiagonals matrix_diagonals(const Mesh& mesh, std::span<const PartMaterial> of_part,
                                 std::span<const std::int32_t> dof_map, int threads, Progress& progress) {
    const ElementType& type = element_type(mesh.element_type);
    const std::int32_t elements = mesh.element_num();
    MatrixDiagonals out;
    out.K.assign(mesh.dof_num(), 0.0);
    out.M.assign(mesh.dof_num(), 0.0);
    std::vector<ElementDiagonals> chunk(std::min(chunk_elements, elements));
    for (std::int32_t first = 0; first < elements && !progress.cancelled(); first += chunk_elements) {
        const std::int32_t last = std::min(elements, first + chunk_elements);
#pragma omp parallel for schedule(static) num_threads(threads)
        for (std::int32_t e = first; e < last; ++e)
            find(mesh, type, e, of_part[mesh.p_ele_part_id[e]], dof_map, chunk[e - first]);
        for (std::int32_t e = first; e < last; ++e) {
            const ElementDiagonals& own = chunk[e - first];
            if (!own.sound) {
                out.bad_element = e;
                return out;
            }
            out.mass_sum += 3 * own.mass;
            out.stiffness_sum += own.stiffness;
            const auto nodes = mesh.element(e);
            for (int i = 0; i < type.nodes; ++i)
                for (int c = 0; c < 3; ++c) {
                    const std::size_t d = 3 * node_index(nodes[i]) + c;
                    out.K[d] += own.K[3 * i + c];
                    out.M[d] += own.M[i];
                }
        }
    }
    for (std::int32_t e = 0; progress.lines_wanted() && e < elements; ++e)
        progress.counter(e, elements, "    k=");
    return out;
}

}  // namespace kestralum
