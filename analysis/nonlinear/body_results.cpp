#include "analysis/nonlinear/body_results.h"

#include "elements/element_type.h"
#include "model/format.h"
#include "model/run.h"

namespace kestralum {

std::string flat_element(const Mesh& mesh, std::int32_t e) {
    const auto c = element_centre(mesh, e);
    return formatted("element %d at (%.6g, %.6g, %.6g) is flat or inverted", e + 1, c[0], c[1], c[2]);
}

std::string inverted_element(const Mesh& mesh, std::int32_t e) {
    const auto c = element_centre(mesh, e);
    return formatted("element %d at (%.6g, %.6g, %.6g) is inverted or its stress is not finite", e + 1, c[0],
                     c[1], c[2]);
}

BodyResults results_of(const FiniteBody& body, const NodeElements& node_elements, Progress& progress) {
    BodyResults out;
    out.nodal.assign(std::size_t(stress_groups) * body.mesh.dof_num(), 0.0);
    std::vector<double> alpha(body.current.size());
    for (std::size_t p = 0; p < alpha.size(); ++p) alpha[p] = body.current[p].alpha;
    const PointResults points = finite_point_results(body);
    mean_stress_strain(body.mesh, node_elements, points, alpha, body.threads, out.nodal, progress);
    const int per_element = element_type(body.mesh.element_type).points;
    out.stress = point_means(points.stress, per_element, 6);
    out.strain = point_means(points.strain, per_element, 6);
    out.plastic = point_means(alpha, per_element, 1);
    return out;
}

std::vector<double> mises_of(const FiniteBody& body) {
    std::vector<double> out(body.stress.size() / 6);
    for (std::size_t p = 0; p < out.size(); ++p) out[p] = mises(&body.stress[6 * p]);
    return out;
}

}  // namespace kestralum
