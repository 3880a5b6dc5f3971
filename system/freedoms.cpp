#include "system/freedoms.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include "elements/element_type.h"
#include "elements/plasticity.h"
#include "model/format.h"
#include "model/removed_elements.h"
#include "model/selection.h"
#include "solver/ordering.h"

namespace kestralum {

namespace {

// What a file that is not a model file cannot say of a model.
const char* missing_definition(ModelSource source) {
    switch (source) {
        case ModelSource::result_file:
            return "the model was opened from a result file, which holds no materials, parameters, options "
                   "of supports and forces, loads of load_info, ties, springs between rigid elements, walls "
                   "or control settings: open its model file to analyse it";
        case ModelSource::displacement_file:
            return "the mesh was opened from a displacement file, which holds no parts, materials, supports "
                   "or "
                   "forces: open its model file to analyse it";
        default:
            return nullptr;
    }
}

bool check_materials_known(Job& job) {
    const Model& model = job.model;
    std::vector<char> used(model.parts.size(), 0);
    for (std::int32_t part : model.mesh.p_ele_part_id) used[part] = 1;
    for (std::size_t k = 0; k < model.parts.size(); ++k) {
        const Part& part = model.parts[k];
        if (used[k] && (part.material_id < 0 || std::size_t(part.material_id) >= model.materials.size()))
            return job.fail(RunStatus::bad_input,
                            formatted("part %s: material '%s' is not in the material table",
                                      part.name.c_str(), part.material_name.c_str()));
    }
    return true;
}

bool check_loads_finite(Job& job) {
    const auto refuse = [&](const std::string& record) {
        return job.fail(RunStatus::bad_input, record + ": the value is not a finite number");
    };
    for (const RigidForce& force : job.model.rigid_forces)
        if (!std::isfinite(force.value)) return refuse("rigid force " + force.name);
    for (const RigidCombine& combine : job.model.rigid_combines)
        for (const auto values : {combine.stiffness, combine.damping})
            for (double k : values)
                if (!(k >= 0) || !std::isfinite(k))
                    return job.fail(RunStatus::bad_input,
                                    formatted("rigid combine %s: %s %g: not a finite number of at least 0",
                                              combine.name.c_str(),
                                              values == combine.stiffness ? "stiffness" : "damping", k));
    for (const AppliedForce& force : job.model.forces)
        if (!std::isfinite(force.value)) return refuse("force " + force.name);
    return true;
}

// A shear modulus of the control file that is not the elastic one: which analysis takes which.
void note_shear_moduli(Job& job) {
    for (const Material& m : job.model.materials) {
        const double elastic = m.young / (2 * (1 + m.poisson)), given = m.shear_modulus;
        if (m.elastic_shear || !(given > 0) || !(std::abs(given - elastic) > 1e-3 * elastic)) continue;
        const std::string head = "material " + m.name + ": ",
                          way_out = "shear=elastic behind its record makes every analysis use E/(2(1+nu))";
        const std::string both =
            formatted("G = %.6e of the control file differs from E/(2(1+nu)) = %.6e", given, elastic);
        const std::string uses = job.run.ana_type == AnalysisType::nonlinear_static
                                     ? "this nonlinear analysis uses G, the others"
                                     : "a nonlinear analysis uses G, this one and all others";
        if (has_yield_stress(m))
            job.note(head + both + ": " + uses +
                     " E/(2(1+nu)), and small loads give other results with it; " + way_out);
        else
            job.note(head + both + ": without a yield stress no analysis uses it");
    }
}

void note_dashpots(Job& job) {
    for (const RigidCombine& combine : job.model.rigid_combines)
        if (combine.damped() && job.run.ana_type != AnalysisType::explicit_dynamics)
            job.note("rigid combine " + combine.name + ": its dashpots act in the explicit analysis alone");
}

}  // namespace

bool check_analysable(Job& job) {
    if (const char* missing = missing_definition(job.model.source))
        return job.fail(RunStatus::bad_input, missing);
    if (job.model.mesh.element_num() < 1)
        return job.fail(RunStatus::bad_input, "the model has no solid elements: nothing to analyse");
    const HexahedronForm asked = job.options.hexahedra.value_or(job.model.hexahedra);
    if (asked != HexahedronForm::full && job.model.mesh.element_type != ElementKind::hexahedron)
        job.note(std::string("hexahedra ") + word_of(asked) + ": without effect, the mesh has none");
    note_shear_moduli(job);
    note_dashpots(job);
    return check_materials_known(job) && check_loads_finite(job);
}

std::string place_of_element(const Job& job, std::int32_t e) {
    const auto c = element_centre(job.mesh(), e);
    return formatted("element %d of part %s at (%.6g, %.6g, %.6g)", e + 1,
                     job.model.parts[job.mesh().p_ele_part_id[e]].name.c_str(), c[0], c[1], c[2]);
}

namespace {

// The largest power of a force in one of the body's motions.
double reach_of(const RigidBody& body, const Vec6& force) {
    double reach = 0;
    for (const Vec6& motion : body.motions)
        reach =
            std::max(reach, std::abs(std::inner_product(motion.begin(), motion.end(), force.begin(), 0.0)));
    return reach;
}

bool check_rigid_forces(Job& job, RigidSystem& rigid) {
    const auto bodies = static_cast<std::int32_t>(rigid.bodies.size());
    for (const RigidForce& force : job.model.rigid_forces) {
        if (force.element < 0 || force.element >= bodies)
            return job.fail(RunStatus::bad_input,
                            "rigid force " + force.name + ": no rigid element '" + force.element_name + "'");
        const Vec6 f = rigid_force_resultant(rigid, force.element, {}, std::span(&force, 1));
        if (force.direction == RigidDirection::normal && force.value != 0 && f[0] == 0 && f[1] == 0 &&
            f[2] == 0)
            return job.fail(RunStatus::bad_input, "rigid force " + force.name + ": the members of '" +
                                                      force.element_name + "' have no mean outward normal");
    }
    for (const RigidForce& force : job.model.rigid_forces) {
        const Vec6 f = rigid_force_resultant(rigid, force.element, {}, std::span(&force, 1));
        if (force.value != 0 && !(reach_of(rigid.bodies[force.element], f) > 1e-12 * std::abs(force.value)))
            rigid.notices.push_back("rigid force " + force.name + ": acts on held motions of " +
                                    force.element_name + " only and is lost");
    }
    return true;
}

// Members and motions of the rigid elements, with what is to be noted of them in `notices`.
bool find_rigid_bodies(Job& job, Freedoms& freedoms) {
    const Model& model = job.model;
    RigidSystem& rigid = freedoms.rigid;
    const std::vector<std::int32_t> whole = wholly_fixed_nodes(model.boundary_conditions, job.mesh());
    const HeldDirections directions =
        find_held_directions(model.boundary_conditions, job.mesh(), freedoms.node_elements);
    if (!directions.error.empty()) return job.fail(RunStatus::bad_input, directions.error);
    if (!model.rigid_elements.empty())
        rigid = build_rigid_system(model.rigid_elements, job.mesh(), freedoms.node_elements, whole,
                                   directions.held);
    if (!rigid.error.empty()) return job.fail(RunStatus::bad_input, rigid.error);
    freedoms.constraints = find_node_constraints(model.boundary_conditions, model.ties, job.mesh(), whole,
                                                 directions.held, rigid, job.progress);
    if (!freedoms.constraints.error.empty())
        return job.fail(RunStatus::bad_input, freedoms.constraints.error);
    if (!check_rigid_forces(job, rigid)) return false;
    const auto bodies = static_cast<std::int32_t>(rigid.bodies.size());
    for (const RigidCombine& combine : model.rigid_combines)
        for (const std::int32_t element : combine.element)
            if (element < 0 || element >= bodies || combine.element[0] == combine.element[1])
                return job.fail(RunStatus::bad_input, "rigid combine " + combine.name +
                                                          ": it wants two different rigid elements, not '" +
                                                          combine.element_name[0] + "' and '" +
                                                          combine.element_name[1] + "'");
    return true;
}

void renumber_sets(Mesh& mesh, std::span<const std::int32_t> number) {
    for (MeshSet& set : mesh.sets) {
        for (std::int32_t& node : set.nodes) node = number[node];
        std::ranges::sort(set.nodes);
    }
}

}  // namespace

bool order_run_mesh(Job& job, Renumbering how, Freedoms& freedoms) {
    job.clock.begin("order");
    Mesh& mesh = job.run.mesh;
    mesh = job.model.mesh;
    job.progress.print("element_type=%d\n", static_cast<std::int32_t>(mesh.element_type));
    job.progress.print("element_num=%d,point_num=%d,fn=%d\n", mesh.element_num(), mesh.node_num(),
                       mesh.dof_num());
    if (how == Renumbering::by_settings) {
        Ordering ordering = order_nodes(mesh, job.settings.ordering_type, job.progress);
        freedoms.diag_num = ordering.diag_num;
        job.run.node_of = std::move(ordering.node_of);
    } else {
        job.run.node_of = reorder_nodes(mesh, "LMAX", job.progress);
        freedoms.diag_num = measure_band(mesh);
    }
    if (!job.goes_on()) return false;
    renumber_sets(mesh, job.run.node_of);
    update_node_normals(mesh, &job.progress);
    job.run.force_node = resolve_force_points(mesh, job.model.forces);
    return job.goes_on();
}

bool find_bodies(Job& job, Freedoms& freedoms) {
    freedoms.node_elements = elements_of_nodes(job.mesh());
    return find_rigid_bodies(job, freedoms) && job.goes_on();
}

bool make_run_mesh(Job& job, Renumbering how, Freedoms& freedoms) {
    return order_run_mesh(job, how, freedoms) && find_bodies(job, freedoms);
}

std::unique_ptr<StepMesh> renumbered(const Mesh& mesh, std::vector<std::int32_t> number) {
    auto out = std::make_unique<StepMesh>(StepMesh{mesh, std::move(number), {}});
    out->of_run.resize(out->number.size());
    for (std::size_t n = 0; n < out->number.size(); ++n)
        out->of_run[out->number[n]] = static_cast<std::int32_t>(n);
    renumber_nodes(out->mesh, out->number);
    renumber_sets(out->mesh, out->number);
    for (std::size_t d = 0; d < out->mesh.node_n_dir.size(); ++d)
        out->mesh.node_n_dir[3 * out->number[d / 3] + d % 3] = mesh.node_n_dir[d];
    return out;
}

std::vector<double> of_run_nodes(const Job& job, std::span<const double> values) {
    std::vector<double> out(values.begin(), values.end());
    if (!job.steps) return out;
    const std::vector<std::int32_t>& number = job.steps->number;
    const std::size_t nodes = number.size(), group = 3 * nodes;
    for (std::size_t first = 0; first < values.size(); first += group)
        for (std::size_t n = 0; n < nodes; ++n)
            std::copy_n(&values[first + 3 * std::size_t(number[n])], 3, &out[first + 3 * n]);
    return out;
}

bool check_turning_bodies(Job& job, const RigidSystem& rigid) {
    for (const RigidBody& body : rigid.bodies)
        if (!body.turns_far())
            return job.fail(
                RunStatus::bad_input,
                "rigid element " + job.model.rigid_elements[body.record].name +
                    ": supports hold its members in several directions, or in one at fewer than three "
                    "places off a line: large rotations want them held whole or in a plane");
    return true;
}

void count_freedoms(Job& job, Freedoms& freedoms) {
    std::int32_t fn_free = job.mesh().dof_num();
    freedoms.numbering = apply_boundary_conditions(
        job.model.boundary_conditions, job.mesh(), freedoms.node_elements, freedoms.constraints, fn_free,
        job.progress, job.steps ? std::span(job.steps->of_run) : std::span<const std::int32_t>());
    const auto true_free = static_cast<std::int32_t>(freedoms.numbering.free_dofs.size());
    if (const std::int32_t repeated = freedoms.numbering.repeated_nodes(); repeated > 0) {
        const std::string line = formatted(
            "%d node%s selected by more than one support: fn_free=%d counts %s again, %d degrees of freedom "
            "are free",
            repeated, repeated == 1 ? " is" : "s are", fn_free, repeated == 1 ? "it" : "them", true_free);
        job.progress.notice("%s", line.c_str());
        job.note(line);
    }
    job.report().free_dofs = true_free;
    for (const std::string& notice : freedoms.rigid.notices) job.note(notice);
    for (const std::string& notice : freedoms.constraints.notices) job.note(notice);
}

bool number_freedoms(Job& job, Freedoms& freedoms) {
    count_freedoms(job, freedoms);
    return job.report().free_dofs > 0 ||
           job.fail(RunStatus::failed, "every degree of freedom is fixed: nothing to solve");
}

void report_largest(Job& job, const Frame& frame) {
    const Mesh& mesh = job.run.mesh;
    const double* u = frame.mode_vec.data();
    const double* mises = frame.node_stress.data() + 4 * frame.mode_vec.size();
    std::vector<char> bare = bare_nodes(mesh, frame.removed);
    if (std::ssize(frame.removed) == mesh.element_num()) bare.clear();  // there is nothing else
    NodeValue displacement, stress;
    for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
        if (!bare.empty() && bare[n]) continue;
        const std::array<double, 3> place{mesh.node(n)[0], mesh.node(n)[1], mesh.node(n)[2]};
        const double size =
            std::sqrt(u[3 * n] * u[3 * n] + u[3 * n + 1] * u[3 * n + 1] + u[3 * n + 2] * u[3 * n + 2]);
        if (displacement.node == 0 || size > displacement.value) displacement = {n + 1, size, place};
        if (stress.node == 0 || mises[3 * n] > stress.value) stress = {n + 1, mises[3 * n], place};
    }
    job.report().largest_displacement = displacement;
    job.report().largest_mises = stress;
}

}  // namespace kestralum
