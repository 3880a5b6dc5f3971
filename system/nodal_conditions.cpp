#include "system/nodal_conditions.h"

#include <algorithm>

#include "model/selection.h"
#include "system/assembly.h"
#include "system/load_set.h"

namespace kestralum {

namespace {

// Adds the diagonals of the stiffness of elements to `diagonal` (dof_num), in their order, as assembly does.
// False with the status set where one cannot be computed.
bool add_diagonals(Job& job, const Elasticity& elasticity, std::span<const std::int32_t> elements,
                   std::span<double> diagonal) {
    constexpr std::size_t block = 4096;  // elements between two looks at a cancel
    const Mesh& mesh = job.mesh();
    const int dofs = 3 * mesh.node_per_element();
    const ElementMatrices matrices = element_matrices(job, elasticity, nullptr, job.hexahedra());
    std::vector<double> values(block * dofs);
    std::vector<char> sound(block);
    for (std::size_t first = 0; first < elements.size() && job.goes_on(); first += block) {
        const auto count = static_cast<std::int64_t>(std::min(block, elements.size() - first));
#pragma omp parallel for schedule(static) num_threads(job.threads())
        for (std::int64_t k = 0; k < count; ++k) {
            std::array<double, 900> ke;  // of thirty degrees of freedom at most
            sound[k] = matrices(elements[first + k], ke.data(), nullptr);
            for (int d = 0; d < dofs; ++d) values[k * dofs + d] = ke[d * dofs + d];
        }
        for (std::int64_t k = 0; k < count; ++k) {
            const std::int32_t e = elements[first + k];
            if (!sound[k])
                return job.fail(RunStatus::failed, place_of_element(job, e) +
                                                       ": the Jacobian is not positive (flat or inverted "
                                                       "element): its forces cannot be spread");
            for (int d = 0; d < dofs; ++d)
                diagonal[3 * node_index(mesh.element(e)[d / 3]) + d % 3] += values[k * dofs + d];
        }
    }
    return job.goes_on();
}

// What area forces are spread by, one entry per equation: the diagonal of K at the nodes that they load, to
// the last bit that of a static run, which adds the elements inside rigid bodies behind the others. Empty
// where none is needed.
bool find_stiffness(Job& job, const Freedoms& freedoms, std::vector<double>& stiffness) {
    const Mesh& mesh = job.mesh();
    if (mesh.element_type != ElementKind::hexahedron) return true;
    std::vector<std::int32_t> around;
    for (const AppliedForce& force : job.model.forces)
        if (force.kind == ForceKind::area)
            for (const std::int32_t n : select_nodes(force, mesh))
                around.insert(around.end(), freedoms.node_elements.of(n).begin(),
                              freedoms.node_elements.of(n).end());
    if (around.empty()) return true;
    std::ranges::sort(around);
    around.erase(std::unique(around.begin(), around.end()), around.end());
    const std::vector<char> inside = freedoms.rigid.elements_inside(mesh);
    std::stable_partition(around.begin(), around.end(),
                          [&](std::int32_t e) { return inside.empty() || !inside[e]; });
    const Elasticity elasticity = build_elasticity(job.model.materials, job.progress);
    std::vector<double> diagonal(mesh.dof_num(), 0.0);
    if (!add_diagonals(job, elasticity, around, diagonal)) return false;
    for (const std::int32_t dof : freedoms.numbering.free_dofs) stiffness.push_back(diagonal[dof]);
    return true;
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
    LoadSet loads;
    if (!resolve_loads(job, freedoms, stiffness, loads)) return false;
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
