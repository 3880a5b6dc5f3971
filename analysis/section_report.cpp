#include "analysis/section_report.h"

#include <algorithm>
#include <utility>

#include "elements/linear_element.h"
#include "model/selection.h"
#include "system/reactions.h"

namespace kestralum {

std::vector<char> held_nodes(const Job& job, const Freedoms& freedoms) {
    std::vector<char> held = reaction_nodes(freedoms, job.mesh().node_num());
    for (const BoundaryCondition& record : job.model.boundary_conditions)
        if (record.options.spring.given() || record.options.normal_spring.given())
            for (const std::int32_t n : select_nodes(record, job.mesh())) held[n] = 1;
    const ConstraintMap& map = freedoms.constraints.map;
    for (const std::int32_t n : map.special_nodes())
        if (map.is_tied(n))
            for (const auto& [other, weight] : map.weights_of(n)) held[other] = 1;  // which it leans on
    for (const RigidBody& body : freedoms.rigid.bodies)
        for (const std::int32_t n : body.members) held[n] = 1;
    return held;
}

ElementForces forces_of_stresses(const Mesh& mesh, std::span<const double> u, std::span<const double> stress,
                                 std::function<HexahedronForm(std::int32_t e)> form) {
    return [&mesh, u, stress, form = std::move(form)](std::int32_t e, std::span<double> f) {
        const ElementType& type = element_type(mesh.element_type);
        const auto nodes = mesh.element(e);
        const auto own = stress.subspan(std::size_t(6) * e * type.points, std::size_t(6) * type.points);
        std::ranges::fill(f, 0.0);
        if (std::ranges::all_of(own, [](double s) { return s == 0; })) return;  // eroded: of any shape
        ElementPoints points;
        for (std::size_t k = 0; k < nodes.size(); ++k)
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t d = 3 * node_index(nodes[k]) + c;
                points.x[3 * k + c] = mesh.coordinates[d] + (u.empty() ? 0.0 : u[d]);
            }
        type.gradients(points.x.data(), points.dN.data(), points.weight.data());
        stress_forces(type, points, form(e), own.data(), f.data());
    };
}

void add_sections(Job& job, const SectionState& state) {
    for (std::size_t k = 0; k < job.options.sections.size(); ++k) {
        SectionSum sum = section_forces(state, job.options.sections[k]);
        sum.plane = static_cast<std::int32_t>(k);
        sum.frame = job.run.mode_num() - 1;
        job.run.sections.push_back(std::move(sum));
    }
}

}  // namespace kestralum
