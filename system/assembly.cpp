#include "system/assembly.h"

#include <algorithm>

#include "conditions/rigid_combines.h"
#include "elements/linear_element.h"
#include "system/support_springs.h"
#include "system/transformed.h"

namespace kestralum {

ElementMatrices element_matrices(const Job& job, const Elasticity& elasticity, const RigidSystem* rigid,
                                 HexahedronForm form) {
    return [&job, &elasticity, rigid, form](std::int32_t e, double* ke, double* me) {
        const Mesh& mesh = job.mesh();
        const ElementType& type = element_type(mesh.element_type);
        ElementPoints points;
        if (!evaluate_points(type, mesh, e, points)) return false;
        const Part& part = job.model.parts[mesh.p_ele_part_id[e]];
        if (rigid && rigid->common_body(mesh.element(e).data(), type.nodes) >= 0)
            std::fill(ke, ke + 9 * type.nodes * type.nodes, 0.0);  // it cannot be strained
        else
            element_stiffness(type, points, moduli(elasticity, part.material_id), form, ke);
        if (!me) return true;
        type.mass(points.x.data(), me);
        const double density = job.model.materials[part.material_id].density;
        for (int k = 0; k < type.nodes * type.nodes; ++k) me[k] *= density;
        return true;
    };
}

std::vector<double> unstrained_diagonal(const Job& job, const Freedoms& freedoms,
                                        std::vector<double> diagonal) {
    if (freedoms.rigid.empty()) return diagonal;
    const Mesh& mesh = job.mesh();
    const ElementType& type = element_type(mesh.element_type);
    const int dofs = 3 * type.nodes;
    SilentProgress silent(job.progress);  // its line has been printed
    const Elasticity elasticity = build_elasticity(job.model.materials, silent);
    const ElementMatrices matrices = element_matrices(job, elasticity, nullptr, job.hexahedra());
    std::vector<double> ke(dofs * dofs);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const auto nodes = mesh.element(e);
        if (freedoms.rigid.common_body(nodes.data(), type.nodes) < 0 || !matrices(e, ke.data(), nullptr))
            continue;
        for (int d = 0; d < dofs; ++d) {
            const std::int32_t equation = freedoms.numbering.dof_map[3 * (nodes[d / 3] - 1) + d % 3];
            if (equation >= 0) diagonal[equation] += ke[d * dofs + d];
        }
    }
    return diagonal;
}

namespace {

// The sum of the entries of M, row by row: of a node's three rows each has its masses once.
double sum_of_mass(const NodeNeighbours& neighbours, std::span<const double> node_mass) {
    double sum = 0;
    if (node_mass.empty()) return sum;
    for (std::size_t n = 0; n + 1 < neighbours.start.size(); ++n)
        for (int row = 0; row < 3; ++row)
            for (std::int64_t k = neighbours.start[n]; k < neighbours.start[n + 1]; ++k) sum += node_mass[k];
    return sum;
}

bool assemble(Job& job, AssembledSystem& system, bool with_mass) {
    const Mesh& mesh = job.mesh();
    const NodeElements& around = system.freedoms.node_elements;
    Progress& progress = job.progress;
    progress.print("Make [K],[M]\n");
    std::size_t most = 0;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) most = std::max(most, around.of(n).size());
    progress.print("  max_overlap_num=%zu\n", most);
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, around, progress);
    const std::int64_t K_num2 = count_overlap(neighbours, system.km, progress);
    progress.print("[K],[M] element num=%ld\n", K_num2);
    build_index(neighbours, system.km, progress);
    if (!job.goes_on()) return false;
    find_diagonals(system.km);
    progress.print("K,M sparse\n");
    progress.print(" Calculate K,M sparse\n");
    std::vector<double> node_mass;
    const std::int32_t bad = assemble_km(
        mesh, neighbours, element_matrices(job, system.elasticity, &system.freedoms.rigid, job.hexahedra()),
        job.threads(), system.km, progress, with_mass ? MassStorage::pattern : MassStorage::nodes,
        "    k=", with_mass ? nullptr : &node_mass);
    if (bad >= 0)
        return job.fail(RunStatus::failed, place_of_element(job, bad) +
                                               ": the Jacobian is not positive (flat or inverted element)");
    if (!job.goes_on()) return false;
    const std::string springs = add_springs(job.model, mesh, around, system.km, system.km.K_value);
    if (!springs.empty()) return job.fail(RunStatus::bad_input, springs);
    progress.print(" Calculate K,M sparse Complete\n");
    double mass = sum_of_mass(neighbours, node_mass);
    for (double m : system.km.M_value) mass += m;
    job.report().total_mass = mass / 3.0;
    transform(system.freedoms.constraints.map, job.threads(), system.km, progress);
    return job.goes_on();
}

void print_sizes(Job& job, const AssembledSystem& system) {
    const SparseKM& km = system.km;
    Progress& progress = job.progress;
    progress.print("fn=%ld,diag_num=%d\n", job.report().free_dofs, system.freedoms.diag_num);
    progress.print("fn_free=%d\n", job.mesh().dof_num());
    progress.print("Mass total=%e[kg]\n", job.report().total_mass);
    progress.print(" Ls_num=%ld\n", profile_size(km));
    progress.print(" K_num2=%ld\n", km.entries());
    progress.print(" [K]memory size=%10.1f[MB]\n", static_cast<double>(km.entries()) * 8 / 1000000);
}

}  // namespace

bool assemble_system(Job& job, AssembledSystem& system, bool with_mass) {
    job.clock.begin("assemble");
    if (!number_freedoms(job, system.freedoms)) return false;
    system.elasticity = build_elasticity(job.model.materials, job.progress);
    if (!assemble(job, system, with_mass)) return false;
    print_sizes(job, system);
    const DofNumbering& numbering = system.freedoms.numbering;
    if (!job.model.boundary_conditions.empty() || !job.model.ties.empty() || numbering.hanging_nodes > 0)
        eliminate_fixed(numbering.dof_map, system.km, job.progress);
    job.progress.print("K,M sparse complete\n");
    return true;
}

bool transform_rigid(Job& job, AssembledSystem& system, bool with_mass) {
    const RigidSystem& rigid = system.freedoms.rigid;
    DofNumbering& numbering = system.freedoms.numbering;
    if (!rigid.empty()) {
        const auto free_before = static_cast<std::int32_t>(numbering.free_dofs.size());
        rigid_transform(rigid, {}, job.mesh(), with_mass, system.km, numbering, system.border);
        const std::vector<RigidState> rest(rigid.bodies.size());
        add_combine_stiffness(job.model.rigid_combines, rigid, rest, {}, system.border.K_rr);
        const std::int32_t fn = job.mesh().dof_num();
        job.progress.print("   fn=%d, fn_r=%d, fn_fix=%d, fn_free=%d\n", fn, system.border.nr,
                           fn - free_before, system.equations());
        job.progress.print("Rigid node\n");
        for (const RigidBody& body : rigid.bodies)
            for (std::int32_t n : body.members) job.progress.print("  %d", n + 1);
        job.progress.print("\n");
    }
    job.report().free_dofs = system.equations();
    return system.equations() > 0 ||
           job.fail(RunStatus::failed, "the rigid elements and supports leave no motion: nothing to solve");
}

std::unique_ptr<BorderedFactor> plan_bordered(Job& job, const AssembledSystem& system, int factors_on_disk,
                                              bool followed) {
    std::unique_ptr<Factor> free;
    if (system.km.rows() > 0) {
        constexpr double border_arrays = 4;  // Kfr and Mfr, and Kfr and Kff⁻¹ Kfr of the factor
        const double border = border_arrays * 8e-6 * system.km.rows() * system.border.nr;
        free = plan_factor(job, system.km, system.freedoms.diag_num,
                           {system.freedoms.numbering.free_dofs, factors_on_disk, border, followed});
        if (!free) return nullptr;
    }
    return std::make_unique<BorderedFactor>(std::move(free), system.km.rows(), system.border.nr);
}

void expand_solution(const Mesh& mesh, const Freedoms& freedoms, std::span<const double> q,
                     std::span<double> u) {
    const std::vector<std::int32_t>& free_dofs = freedoms.numbering.free_dofs;
    for (std::size_t k = 0; k < free_dofs.size(); ++k) u[free_dofs[k]] = q[k];
    expand_members(freedoms.rigid, mesh, q.subspan(free_dofs.size()), u);
    freedoms.constraints.map.expand(u);
}

}  // namespace kestralum
