#include "system/nodal_conditions.h"

#include <algorithm>

#include "system/assembly.h"
#include "system/diagonals.h"

namespace kestralum {

namespace {

// What area forces are spread by; empty where none needs it. False with the status set.
bool find_stiffness(Job& job, const Freedoms& freedoms, std::vector<double>& stiffness) {
    const auto is_area = [](const AppliedForce& force) { return force.kind == ForceKind::area; };
    const Mesh& mesh = job.mesh();
    if (mesh.element_type != ElementKind::hexahedron || std::ranges::none_of(job.model.forces, is_area))
        return true;
    const Elasticity elasticity = build_elasticity(job.model.materials, job.progress);
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, freedoms.node_elements, job.progress);
    if (!job.goes_on()) return false;
    const MatrixDiagonals diagonals = matrix_diagonals(
        mesh, freedoms.node_elements, neighbours, element_matrices(job, elasticity, &freedoms.rigid),
        freedoms.numbering.dof_map, job.threads(), job.progress);
    if (diagonals.bad_element >= 0)
        return job.fail(RunStatus::failed,
                        place_of_element(job, diagonals.bad_element) +
                            ": the Jacobian is not positive (flat or inverted element): its forces cannot be "
                            "spread");
    for (const std::int32_t dof : freedoms.numbering.free_dofs) stiffness.push_back(diagonals.K[dof]);
    stiffness = unstrained_diagonal(job, freedoms, std::move(stiffness));
    return job.goes_on();
}

// Directions at right angles to all rotations of the body.
std::vector<Vec3> held_rotations(const RigidBody& body) {
    std::vector<Vec3> turns;
    for (const Vec6& motion : body.motions)
        if (const Vec3 w{motion[3], motion[4], motion[5]}; norm(w) > 0) turns.push_back(unit(w));
    if (turns.empty()) return {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    if (turns.size() == 1) return {across(turns[0]), cross(turns[0], across(turns[0]))};
    if (turns.size() == 2) return {unit(cross(turns[0], turns[1]))};
    return {};
}

RigidMotion motion_of(const Model& model, const RigidSystem& rigid, std::int32_t b,
                      const std::vector<std::int32_t>& model_node) {
    const RigidBody& body = rigid.bodies[b];
    RigidMotion out;
    out.name = model.rigid_elements[body.record].name;
    for (const std::int32_t n : body.members) out.members.push_back(model_node[n]);
    std::ranges::sort(out.members);
    out.held = !body.fixed.empty();
    out.point = out.held ? body.pivot : body.reference;
    out.no_turn = held_rotations(body);
    out.load = rigid_force_resultant(rigid, b, {}, model.rigid_forces);
    // from the pivot to the point
    const Vec3 turn = cross(minus(body.pivot, out.point), {out.load[0], out.load[1], out.load[2]});
    for (std::size_t c = 0; c < 3; ++c) out.load[3 + c] += turn[c];
    return out;
}

// Into the numbering of the model's mesh.
void carry_over(const Job& job, const Freedoms& freedoms, NodalConditions& out) {
    const Model& model = job.model;
    const std::vector<std::int32_t>& node_of = job.run.node_of;
    std::vector<std::int32_t> model_node(node_of.size());
    out.load.resize(3 * node_of.size());
    for (std::size_t n = 0; n < node_of.size(); ++n) {
        model_node[node_of[n]] = static_cast<std::int32_t>(n);
        for (std::size_t c = 0; c < 3; ++c) out.load[3 * n + c] = job.run.load[3 * node_of[n] + c];
    }
    for (const std::int32_t n : freedoms.numbering.fixed_nodes)
        if (freedoms.node_elements.any(n)) out.fixed.push_back(model_node[n]);
    std::ranges::sort(out.fixed);
    out.fixed.erase(std::unique(out.fixed.begin(), out.fixed.end()), out.fixed.end());
    for (std::size_t b = 0; b < freedoms.rigid.bodies.size(); ++b)
        out.rigid.push_back(motion_of(model, freedoms.rigid, static_cast<std::int32_t>(b), model_node));
    for (const RigidCombine& record : model.rigid_combines) {
        Vec3 middle{};
        for (const std::int32_t e : record.element)
            middle = plus(middle, times(0.5, model.rigid_elements[e].reference));
        out.springs.push_back({record.name, record.element, middle, record.stiffness});
    }
}

bool work(Job& job, NodalConditions& out) {
    Freedoms freedoms;
    if (!check_analysable(job) || !make_run_mesh(job, Renumbering::by_settings, freedoms)) return false;
    count_freedoms(job, freedoms);
    std::vector<double> stiffness;
    if (!find_stiffness(job, freedoms, stiffness)) return false;
    resolve_loads(job, freedoms, stiffness);
    carry_over(job, freedoms, out);
    return job.goes_on();
}

}  // namespace

bool find_nodal_conditions(const Model& model, const Settings& settings, const Progress& progress,
                           NodalConditions& out, Remarks& remarks) {
    SilentProgress silent(progress);
    const RunOptions options;
    Run run;
    Job job{model, settings, options, silent, run};
    const bool good = work(job, out);
    for (const std::string& notice : run.report.remarks.notices) remarks.notices.push_back(notice);
    for (const std::string& error : run.report.remarks.errors) remarks.errors.push_back(error);
    return good;
}

}  // namespace kestralum
