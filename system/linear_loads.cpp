#include "system/linear_loads.h"

#include <algorithm>
#include <cmath>

#include "elements/linear_element.h"
#include "model/load_cases.h"
#include "system/support_springs.h"

namespace kestralum {

namespace {

void add_scaled(std::vector<double>& sum, double factor, const std::vector<double>& other) {
    if (sum.empty()) sum.assign(other.size(), 0.0);
    for (std::size_t k = 0; k < other.size(); ++k) sum[k] += factor * other[k];
}

}  // namespace

void add_strain_forces(const Job& job, const Elasticity& elasticity, std::span<const double> strain,
                       std::span<double> nodal) {
    const Mesh& mesh = job.mesh();
    const ElementType& type = element_type(mesh.element_type);
    ElementPoints points;
    std::array<double, 3 * most_nodes> fe;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        if (!evaluate_points(type, mesh, e, points)) continue;
        const Part& part = job.model.parts[mesh.p_ele_part_id[e]];
        initial_strain_forces(type, points, moduli(elasticity, part.material_id), job.hexahedra(),
                              strain.data() + std::size_t(6) * type.points * e, fe.data());
        const auto nodes = mesh.element(e);
        for (std::size_t d = 0; d < 3 * nodes.size(); ++d)
            nodal[3 * node_index(nodes[d / 3]) + d % 3] += fe[d];
    }
}

namespace {

// What the body and the supports' springs resist displacements with (3 per node); only elements that are
// moved are looked at.
std::vector<double> resistance(Job& job, const AssembledSystem& system, std::span<const double> u) {
    const Mesh& mesh = job.mesh();
    const std::size_t dofs = 3 * mesh.node_per_element();
    const ElementMatrices matrices =
        element_matrices(job, system.elasticity, &system.freedoms.rigid, job.hexahedra());
    std::vector<double> force(u.size(), 0.0), ke(dofs * dofs), own(dofs);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto nodes = mesh.element(e);
        const auto place = [&](std::size_t d) { return 3 * node_index(nodes[d / 3]) + d % 3; };
        for (std::size_t d = 0; d < dofs; ++d) own[d] = u[place(d)];
        if (std::ranges::all_of(own, [](double v) { return v == 0; }) || !matrices(e, ke.data(), nullptr))
            continue;
        for (std::size_t r = 0; r < dofs; ++r)
            for (std::size_t c = 0; c < dofs; ++c) force[place(r)] += ke[r * dofs + c] * own[c];
    }
    for (const BoundaryCondition& record : job.model.boundary_conditions)
        add_spring_forces(record, mesh, system.freedoms.node_elements, u, force);
    return force;
}

}  // namespace

bool find_cases(Job& job, std::vector<CaseTerms>& out) {
    const std::vector<std::string> cases = case_names(job.model);
    for (const std::string& name : cases) out.push_back({name, {{name, 1.0}}});
    for (const LoadCombination& combination : job.model.combinations) {
        for (const auto& [name, factor] : combination.terms)
            if (std::ranges::find(cases, name) == cases.end())
                return job.fail(RunStatus::bad_input,
                                "combination " + combination.name + ": no load has the case " + name);
        out.push_back({combination.name, combination.terms});
    }
    const std::string& wanted = job.options.load_case;
    if (!wanted.empty()) {
        std::erase_if(out, [&](const CaseTerms& c) { return c.name != wanted; });
        if (out.empty())
            return job.fail(RunStatus::bad_input, "no load case or combination has the name " + wanted);
    } else if (out.size() == 1) {
        out[0].name.clear();
    }
    return true;
}

LinearLoad load_of_case(const Job& job, const LoadSet& loads, const Freedoms& freedoms,
                        const std::string& load_case) {
    const Mesh& mesh = job.mesh();
    LinearLoad out;
    out.applied = applied_loads(loads, mesh, freedoms.rigid, end_of_load, Growth::whole, load_case);
    for (const HeldDof& held : freedoms.constraints.held) {
        const double value = freedoms.constraints.displacement(held, job.model.boundary_conditions, mesh,
                                                               end_of_load, load_case);
        if (value == 0) continue;
        if (out.held.empty()) out.held.assign(mesh.dof_num(), 0.0);
        out.held[held.dof] = value;
    }
    const std::vector<double> thermal =
        thermal_strains(loads, job.model, mesh, end_of_load, Growth::whole, load_case);
    if (!thermal.empty()) out.initial_strain.assign(6 * thermal.size(), 0.0);
    for (std::size_t p = 0; p < thermal.size(); ++p)
        for (std::size_t c = 0; c < 3; ++c) out.initial_strain[6 * p + c] = thermal[p];
    return out;
}

void add_load(LinearLoad& sum, double factor, const LinearLoad& other) {
    add_scaled(sum.applied.nodal, factor, other.applied.nodal);
    sum.applied.rigid.resize(other.applied.rigid.size());
    for (std::size_t b = 0; b < sum.applied.rigid.size(); ++b)
        for (std::size_t c = 0; c < 6; ++c) sum.applied.rigid[b][c] += factor * other.applied.rigid[b][c];
    if (!other.held.empty()) add_scaled(sum.held, factor, other.held);
    if (!other.initial_strain.empty()) add_scaled(sum.initial_strain, factor, other.initial_strain);
}

std::vector<double> right_hand_side(Job& job, const AssembledSystem& system, const LinearLoad& load) {
    AppliedLoads forces = load.applied;
    if (!load.initial_strain.empty())
        add_strain_forces(job, system.elasticity, load.initial_strain, forces.nodal);
    if (!load.held.empty()) {
        std::vector<double> u = load.held;
        system.freedoms.constraints.map.expand(u);
        const std::vector<double> resisted = resistance(job, system, u);
        for (std::size_t d = 0; d < resisted.size(); ++d) forces.nodal[d] -= resisted[d];
    }
    return reduce_loads(forces, system.freedoms, system.freedoms.numbering.free_dofs, job.mesh(), {});
}

std::vector<double> displacements(const Mesh& mesh, const Freedoms& freedoms, std::span<const double> q,
                                  const LinearLoad& load) {
    std::vector<double> u = load.held;
    u.resize(mesh.dof_num(), 0.0);
    expand_solution(mesh, freedoms, q, u);
    return u;
}

}  // namespace kestralum
