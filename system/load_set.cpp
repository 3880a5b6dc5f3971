#include "system/load_set.h"

#include <algorithm>
#include <cmath>

#include "elements/body_loads.h"
#include "elements/element_type.h"
#include "model/face_points.h"
#include "model/format.h"
#include "model/free_faces.h"
#include "model/load_cases.h"
#include "model/mesh_sets.h"
#include "system/job.h"

namespace kestralum {

namespace {

// A moment of an area's shares below this part of the force times the area's size is of no matter.
constexpr double smallest_arm = 0.01;

void note_loads(Job& job, std::span<const LoadedRecord> records) {
    for (std::size_t f = 0; f < records.size(); ++f) {
        const AppliedForce& force = job.model.forces[f];
        const LoadedRecord& record = records[f];
        const std::string name = "force " + force.name;
        if (record.reached == 0)
            job.note(name +
                     (force.kind == ForceKind::node ? ": no node at its point" : ": no node in its box"));
        else if (record.on_fixed == record.reached)
            job.note(name + ": acts on fixed degrees of freedom only and is lost");
        if (record.replaced > 0)
            job.note(formatted(
                "%s: %d of its %d nodes are loaded by a later force in the same direction, which takes "
                "the place of their shares: %.6g of %.6g N act",
                name.c_str(), record.replaced, record.reached, record.applied, force.value));
        if (record.arm > smallest_arm * record.size)
            job.note(formatted(
                "%s: its shares on the nodes act %.3g m off the middle of the area, a moment of (%.3g, "
                "%.3g, %.3g) N m: the nodes of the area are spread unevenly",
                name.c_str(), record.arm, record.moment[0], record.moment[1], record.moment[2]));
    }
}

std::string case_of(const LoadOptions& options) {
    return options.case_name.empty() ? base_case : options.case_name;
}

bool varies_itself(const Load& load) {
    return load.kind == LoadKind::traction &&
           std::ranges::any_of(load.vector, [](const FieldExpression& e) { return e.varies; });
}

// The group of a load's case and factor, made where it is not there yet.
LoadGroup& group_of(const LoadOptions& options, std::size_t dofs, LoadSet& loads) {
    for (LoadGroup& group : loads.groups)
        if (case_of(group.options) == case_of(options) && group.options.factor.text == options.factor.text)
            return group;
    LoadGroup& group = loads.groups.emplace_back();
    group.options = options;
    group.nodal.assign(dofs, 0.0);
    return group;
}

void add_surface(const Mesh& mesh, const Load& load, double time, double factor, std::span<const double> u,
                 std::span<double> nodal) {
    if (load.kind == LoadKind::pressure)
        return add_pressure(mesh, faces_of(mesh, load), load.value, time, factor, u, nodal);
    std::vector<double> own(nodal.size(), 0.0);
    add_traction(mesh, faces_of(mesh, load), load.vector, time, own);
    for (std::size_t d = 0; d < own.size(); ++d) nodal[d] += factor * own[d];
}

std::vector<double> per_part(const Model& model, double Material::*value) {
    std::vector<double> out;
    for (const Part& part : model.parts) {
        const bool known = part.material_id >= 0 && std::size_t(part.material_id) < model.materials.size();
        out.push_back(known ? model.materials[part.material_id].*value : 0);
    }
    return out;
}

// A dead load at factor 1; not empty: why it cannot be.
std::string add_dead(const Model& model, const Mesh& mesh, const Load& load, std::span<double> nodal) {
    const std::vector<ElementFace>& faces = faces_of(mesh, load);
    const Vec3 axis = load.direction;
    switch (load.kind) {
        case LoadKind::traction:
            add_traction(mesh, faces, load.vector, 1, nodal);
            return {};
        case LoadKind::force:
            add_force(mesh, faces, load.force, nodal);
            return {};
        case LoadKind::bearing:
            return add_bearing(mesh, faces, load.force, nodal);
        case LoadKind::remote:
            return add_remote(mesh, faces, load.point, load.force, load.moment, nodal);
        case LoadKind::gravity:
            add_body_force(
                mesh, per_part(model, &Material::density), [&](const Vec3&) { return axis; }, nodal);
            return {};
        case LoadKind::centrifugal:
            add_body_force(
                mesh, per_part(model, &Material::density),
                [&](const Vec3& x) {
                    const Vec3 arm = minus(x, load.point);
                    return times(load.speed * load.speed, minus(arm, times(dot(arm, axis), axis)));
                },
                nodal);
            return {};
        default:
            return {};
    }
}

bool add_forces(Job& job, const Freedoms& freedoms, std::span<const double> stiffness, LoadSet& out) {
    const Model& model = job.model;
    const LoadPlaces places{job.mesh(), freedoms.node_elements, freedoms.numbering, freedoms.constraints.map};
    std::vector<std::int32_t> force_node = job.run.force_node;
    for (std::int32_t& n : force_node)
        if (job.steps && n > 0) n = job.steps->number[n - 1] + 1;
    std::vector<LoadedRecord> records(model.forces.size());
    std::vector<char> done(model.forces.size(), 0);
    for (std::size_t first = 0; first < done.size(); ++first) {
        if (done[first]) continue;
        LoadGroup& group = group_of(model.forces[first].options, job.mesh().dof_num(), out);
        std::vector<char> chosen(done.size(), 0);
        for (std::size_t f = first; f < done.size(); ++f)
            chosen[f] = case_of(model.forces[f].options) == case_of(group.options) &&
                        model.forces[f].options.factor.text == group.options.factor.text;
        LoadVector load = build_loads(model.forces, force_node, places, stiffness, job.progress, chosen);
        for (std::size_t f = 0; f < done.size(); ++f) {
            if (!chosen[f]) continue;
            done[f] = 1;
            records[f] = load.records[f];
        }
        group.nodal = std::move(load.nodal);
    }
    note_loads(job, records);
    for (const RigidForce& force : model.rigid_forces)
        group_of(force.options, job.mesh().dof_num(), out).rigid_forces.push_back(force);
    return true;
}

bool all_finite(std::span<const double> values) {
    return std::ranges::all_of(values, [](double v) { return std::isfinite(v); });
}

// A temperature on parts none of which expands does nothing.
void note_expansion(Job& job, const Load& load) {
    const Model& model = job.model;
    for (std::size_t p = 0; p < model.parts.size(); ++p)
        if ((load.part_name == "all" || is_of_part(model.parts, p, load.part_name)) &&
            model.parts[p].material_id >= 0 && model.materials[model.parts[p].material_id].expansion != 0)
            return;
    job.note("load " + load.name + ": no material of its parts has alpha=, nothing expands");
}

bool check_factor(Job& job, const std::string& record, const LoadOptions& options) {
    const std::string why = options.factor.given() ? wrong_value(record, options.factor, nullptr, 1) : "";
    return why.empty() || job.fail(RunStatus::bad_input, why + ": a factor is a finite number");
}

bool check_factors(Job& job) {
    const Model& model = job.model;
    for (const AppliedForce& force : model.forces)
        if (!check_factor(job, "force " + force.name, force.options)) return false;
    for (const RigidForce& force : model.rigid_forces)
        if (!check_factor(job, "rigid force " + force.name, force.options)) return false;
    for (const Load& load : model.loads)
        if (!check_factor(job, "load " + load.name, load.options)) return false;
    return true;
}

bool add_loads(Job& job, LoadSet& out) {
    const Mesh& mesh = job.mesh();
    for (const Load& load : job.model.loads) {
        if (load.kind == LoadKind::temperature) {
            out.temperatures.push_back(&load);
            if (!all_finite(thermal_strains(out, job.model, mesh, 1, Growth::whole, {})))
                return job.fail(RunStatus::bad_input, "load " + load.name + ": '" + load.value.text +
                                                          "' is not a finite number everywhere");
            note_expansion(job, load);
            continue;
        }
        if (load.kind == LoadKind::pressure || varies_itself(load)) {
            out.surface.push_back(&load);
            std::vector<double> trial(mesh.dof_num(), 0.0);
            add_surface(mesh, load, 1, 1, {}, trial);
            if (!all_finite(trial))
                return job.fail(RunStatus::bad_input, "load " + load.name +
                                                          ": its value is not a finite number "
                                                          "everywhere on " +
                                                          load.set_name);
            continue;
        }
        std::vector<double> nodal(mesh.dof_num(), 0.0);
        const std::string why = add_dead(job.model, mesh, load, nodal);
        if (!why.empty()) return job.fail(RunStatus::bad_input, "load " + load.name + ": " + why);
        if (!all_finite(nodal))
            return job.fail(RunStatus::bad_input,
                            "load " + load.name + ": it is not a finite number everywhere");
        LoadGroup& group = group_of(load.options, nodal.size(), out);
        for (std::size_t d = 0; d < nodal.size(); ++d) group.nodal[d] += nodal[d];
        if (!job.goes_on()) return false;
    }
    return true;
}

}  // namespace

const std::vector<ElementFace>& faces_of(const Mesh& mesh, const Load& load) {
    static const std::vector<ElementFace> none;
    const MeshSet* set = find_set(mesh, load.set_name);
    return set ? set->faces : none;
}

void add_surface_load(const Mesh& mesh, const Load& load, double time, std::span<const double> u,
                      std::span<double> nodal) {
    if (load.kind == LoadKind::pressure)
        return add_pressure(mesh, faces_of(mesh, load), load.value, time, 1, u, nodal);
    add_traction(mesh, faces_of(mesh, load), load.vector, time, nodal);
}

bool check_case(Job& job) {
    const std::string& wanted = job.options.load_case;
    if (wanted.empty() || std::ranges::count(case_names(job.model), wanted) > 0) return true;
    const bool sum = std::ranges::any_of(job.model.combinations,
                                         [&](const LoadCombination& c) { return c.name == wanted; });
    return job.fail(RunStatus::bad_input,
                    sum ? wanted + " is a combination: only the static analysis adds cases"
                        : "no load case has the name " + wanted);
}

double load_factor(const LoadOptions& options, double time, Growth growth) {
    constexpr double nowhere[3] = {};
    if (options.factor.given()) return options.factor.at(nowhere, time);
    return growth == Growth::with_time ? time : 1;
}

bool resolve_loads(Job& job, const Freedoms& freedoms, std::span<const double> stiffness, LoadSet& out) {
    if (!check_factors(job) || !add_forces(job, freedoms, stiffness, out) || !add_loads(job, out))
        return false;
    for (std::size_t b = 0; b < job.model.boundary_conditions.size(); ++b)
        if (freedoms.numbering.selected[b] == 0)
            job.note("support " + job.model.boundary_conditions[b].name + ": selects no node");
    job.run.load = applied_loads(out, job.mesh(), {}, 1, Growth::whole, {}).nodal;
    return true;
}

bool measure_loads(Job& job, std::vector<LoadFigures>& out) {
    const Mesh& mesh = job.mesh();
    for (const Load& load : job.model.loads) {
        LoadFigures& figures = out.emplace_back();
        figures.name = load.name;
        const std::vector<ElementFace>& faces = faces_of(mesh, load);
        figures.faces = faces.size();
        for (const ElementFace& face : faces) figures.area += face_area(mesh, face);
        std::vector<double> nodal(mesh.dof_num(), 0.0);
        if (load.kind == LoadKind::pressure || varies_itself(load))
            add_surface(mesh, load, 1, 1, {}, nodal);
        else if (const std::string why = add_dead(job.model, mesh, load, nodal); !why.empty())
            return job.fail(RunStatus::bad_input, "load " + load.name + ": " + why);
        for (std::size_t d = 0; d < nodal.size(); ++d) figures.force[d % 3] += nodal[d];
    }
    return true;
}

AppliedLoads applied_loads(const LoadSet& loads, const Mesh& mesh, const RigidSystem& rigid, double time,
                           Growth growth, const std::string& load_case, std::span<const double> u,
                           std::span<const RigidState> states) {
    AppliedLoads out;
    out.nodal.assign(mesh.dof_num(), 0.0);
    out.rigid.assign(rigid.bodies.size(), {});
    for (const LoadGroup& group : loads.groups) {
        if (!acts_in_case(group.options.case_name, load_case)) continue;
        const double factor = load_factor(group.options, time, growth);
        for (std::size_t d = 0; d < group.nodal.size(); ++d) out.nodal[d] += factor * group.nodal[d];
        for (std::size_t b = 0; b < out.rigid.size(); ++b) {
            const Vec6 force =
                rigid_force_resultant(rigid, static_cast<std::int32_t>(b),
                                      states.empty() ? RigidState{} : states[b], group.rigid_forces);
            for (std::size_t c = 0; c < 6; ++c) out.rigid[b][c] += factor * force[c];
        }
    }
    for (const Load* load : loads.surface)
        if (acts_in_case(load->options.case_name, load_case))
            add_surface(mesh, *load, time, load_factor(load->options, time, growth), u, out.nodal);
    return out;
}

void add_follower_stiffness(const LoadSet& loads, const Mesh& mesh, double time, Growth growth,
                            const std::string& load_case, std::span<const double> u, const AddBlock& add) {
    for (const Load* load : loads.surface)
        if (load->kind == LoadKind::pressure && acts_in_case(load->options.case_name, load_case))
            pressure_stiffness(mesh, faces_of(mesh, *load), load->value, time,
                               load_factor(load->options, time, growth), u, add);
}

std::vector<double> reduce_loads(const AppliedLoads& loads, const Freedoms& freedoms,
                                 std::span<const std::int32_t> free_dofs, const Mesh& mesh,
                                 std::span<const RigidState> states) {
    const RigidSystem& rigid = freedoms.rigid;
    std::vector<double> gathered;
    if (!freedoms.constraints.map.empty()) {
        gathered = loads.nodal;
        freedoms.constraints.map.gather(gathered);
    }
    const std::vector<double>& nodal = gathered.empty() ? loads.nodal : gathered;
    const std::size_t nf = free_dofs.size();
    std::vector<double> out(nf + rigid.equations, 0.0);
    for (std::size_t k = 0; k < nf; ++k) out[k] = nodal[free_dofs[k]];
    for (std::size_t b = 0; b < rigid.bodies.size(); ++b) {
        const RigidBody& body = rigid.bodies[b];
        const RigidState state = states.empty() ? RigidState{} : states[b];
        double* at = out.data() + nf + body.first;
        project(body, state, resultant(body, state, mesh, nodal), 1, at);
        project(body, state, loads.rigid[b], 1, at);
    }
    return out;
}

std::vector<Heating> heatings_of(const LoadSet& loads, const Model& model, const std::string& load_case) {
    std::vector<Heating> out;
    for (const Load* load : loads.temperatures) {
        if (!acts_in_case(load->options.case_name, load_case)) continue;
        Heating& heating = out.emplace_back(Heating{load, per_part(model, &Material::expansion), {}});
        for (std::size_t p = 0; p < model.parts.size(); ++p)
            heating.chosen.push_back(load->part_name == "all" || is_of_part(model.parts, p, load->part_name));
    }
    return out;
}

void add_heating(const Heating& heating, const Mesh& mesh, double time, double factor, int threads,
                 std::span<double> strain) {
    add_thermal_strain(mesh, heating.expansion, heating.chosen, heating.load->value, heating.load->reference,
                       time, factor, strain, threads);
}

std::vector<double> thermal_strains(const LoadSet& loads, const Model& model, const Mesh& mesh, double time,
                                    Growth growth, const std::string& load_case) {
    std::vector<double> strain;
    for (const Heating& heating : heatings_of(loads, model, load_case)) {
        strain.resize(std::size_t(mesh.element_num()) * element_type(mesh.element_type).points, 0.0);
        add_heating(heating, mesh, time, load_factor(heating.load->options, time, growth), 1, strain);
    }
    return strain;
}

}  // namespace kestralum
