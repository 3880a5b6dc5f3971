#include "system/support_springs.h"

#include <algorithm>
#include <cassert>

#include "conditions/supports.h"

namespace kestralum {

namespace {

bool has_spring(const BoundaryCondition& record) {
    return record.options.spring.given() || record.options.normal_spring.given();
}

}  // namespace

bool has_springs(const Model& model) {
    return std::ranges::any_of(model.boundary_conditions, has_spring);
}

AddBlock adding_to(const SparseKM& km, std::vector<double>& values) {
    return [&km, &values](std::span<const std::int32_t> nodes, std::span<const double> block) {
        const std::size_t size = 3 * nodes.size();
        for (std::size_t i = 0; i < size; ++i) {
            const std::int32_t row = 3 * nodes[i / 3] + static_cast<std::int32_t>(i % 3);
            const auto first = km.col_index.begin() + km.row_start[row], last = first + km.row_count[row];
            for (std::size_t j = 0; j < nodes.size(); ++j) {
                const auto at = std::lower_bound(first, last, 3 * nodes[j]);
                assert(at != last && *at == 3 * nodes[j]);
                double* to = values.data() + (at - km.col_index.begin());
                for (std::size_t c = 0; c < 3; ++c) to[c] += block[i * size + 3 * j + c];
            }
        }
    };
}

void support_springs(const BoundaryCondition& record, const Mesh& mesh, const NodeElements& node_elements,
                     const AddBlock& add) {
    if (!has_spring(record)) return;
    surface_springs(mesh, support_faces(record, mesh, node_elements), record.options.spring,
                    record.options.normal_spring, add);
}

std::string all_springs(const Model& model, const Mesh& mesh, const NodeElements& node_elements,
                        const AddBlock& add) {
    for (const BoundaryCondition& record : model.boundary_conditions) {
        if (!has_spring(record)) continue;
        const std::vector<ElementFace> faces = support_faces(record, mesh, node_elements);
        if (faces.empty())
            return "support " + record.name + ": spring: no face has all its nodes in the support";
        for (const FieldExpression* field : {&record.options.spring, &record.options.normal_spring})
            if (field->given())
                if (std::string why = wrong_value_on(mesh, faces, "support " + record.name, *field, 1, 0);
                    !why.empty())
                    return why + ": a stiffness per area is a finite number of at least 0";
        support_springs(record, mesh, node_elements, add);
    }
    return {};
}

std::string add_springs(const Model& model, const Mesh& mesh, const NodeElements& node_elements,
                        const SparseKM& km, std::vector<double>& values) {
    return all_springs(model, mesh, node_elements, adding_to(km, values));
}

void add_spring_forces(const BoundaryCondition& record, const Mesh& mesh, const NodeElements& node_elements,
                       std::span<const double> u, std::span<double> nodal) {
    support_springs(
        record, mesh, node_elements, [&](std::span<const std::int32_t> nodes, std::span<const double> block) {
            const std::size_t size = 3 * nodes.size();
            for (std::size_t i = 0; i < size; ++i)
                for (std::size_t j = 0; j < size; ++j)
                    nodal[3 * nodes[i / 3] + i % 3] += block[i * size + j] * u[3 * nodes[j / 3] + j % 3];
        });
}

}  // namespace kestralum
