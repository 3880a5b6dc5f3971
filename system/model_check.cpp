#include "system/model_check.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "elements/element_type.h"
#include "model/element_quality.h"
#include "model/format.h"
#include "model/selection.h"
#include "solver/multifrontal.h"
#include "solver/panels.h"
#include "solver/sparse.h"
#include "system/freedoms.h"
#include "system/solver_choice.h"

namespace kestralum {

namespace {

// Enters a value whose larger `badness` is worse.
void enter(ShapeMeasure& measure, std::int32_t element, double value, double badness_sign, const Mesh& mesh) {
    constexpr std::size_t kept = 3;
    measure.beyond += badness_sign * value > badness_sign * measure.limit;
    auto& worst = measure.worst;
    if (worst.size() == kept && badness_sign * value <= badness_sign * worst.back().value) return;
    const auto at = std::ranges::find_if(
        worst, [&](const auto& w) { return badness_sign * value > badness_sign * w.value; });
    worst.insert(at, {element, value, element_centre(mesh, element)});
    if (worst.size() > kept) worst.pop_back();
}

// x: the element's nodes × 3, m.
void check_shape(const Mesh& mesh, std::int32_t e, std::span<const double> x, ModelCheck& out) {
    const ElementQuality quality = element_quality(mesh.element_type, x);
    enter(out.angle, e, quality.angle, -1, mesh);
    enter(out.jacobian, e, quality.jacobian, -1, mesh);
    enter(out.edge_ratio, e, quality.edge_ratio, 1, mesh);
}

void check_elements(const Model& model, const Mesh& mesh, ModelCheck& out) {
    const ElementType& type = element_type(mesh.element_type);
    ElementPoints points;
    out.part_mass.assign(model.parts.size(), 0);
    out.part_volume.assign(model.parts.size(), 0);
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const bool sound = evaluate_points(type, mesh, e, points);
        const ElementPlace place{e, element_volume(type, points), element_centre(mesh, e)};
        out.volume += place.volume;
        check_shape(mesh, e, points.x, out);
        const std::int32_t p = mesh.p_ele_part_id[e];
        const Part& part = model.parts[p];
        out.part_volume[p] += place.volume;
        if (part.material_id >= 0 && std::size_t(part.material_id) < model.materials.size()) {
            const double mass = place.volume * model.materials[part.material_id].density;
            out.mass += mass;
            out.part_mass[p] += mass;
        }
        if (out.smallest.element < 0 || place.volume < out.smallest.volume) out.smallest = place;
        if (out.largest.element < 0 || place.volume > out.largest.volume) out.largest = place;
        if (!sound && ++out.bad_count <= 100) out.bad.push_back(place);
    }
}

// Bodies: elements connected through common nodes and `links`, pairs of 0-based nodes.
std::vector<Body> linked_bodies(const Mesh& mesh, std::span<const char> fixed,
                                std::span<const std::array<std::int32_t, 2>> links) {
    std::vector<Body> out;
    const std::vector<std::int32_t> lowest = connected_nodes(mesh, links);
    std::vector<std::int32_t> body_of(lowest.size(), -1);  // of each lowest node
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::size_t first = node_index(mesh.element(e)[0]);
        std::int32_t& body = body_of[lowest[first]];
        if (body < 0) {
            body = static_cast<std::int32_t>(out.size());
            out.emplace_back();
        }
        Body& b = out[body];
        ++b.elements;
        const std::int32_t part = mesh.p_ele_part_id[e];
        if (b.parts.empty() || b.parts.back() != part) b.parts.push_back(part);
    }
    for (std::size_t n = 0; n < lowest.size(); ++n) {
        const std::int32_t body = body_of[lowest[n]];
        if (body >= 0 && fixed[n]) out[body].supported = true;
    }
    for (Body& b : out) {
        std::sort(b.parts.begin(), b.parts.end());
        b.parts.erase(std::unique(b.parts.begin(), b.parts.end()), b.parts.end());
    }
    return out;
}

void notice(ModelCheck& out, std::string text) {
    out.remarks.notices.push_back(std::move(text));
}

void check_supports(const Model& model, const Mesh& mesh, const Freedoms& freedoms, ModelCheck& out) {
    out.support_nodes = freedoms.numbering.selected;
    for (std::size_t b = 0; b < model.boundary_conditions.size(); ++b) {
        const BoundaryCondition& record = model.boundary_conditions[b];
        if (out.support_nodes[b] > 0) continue;
        std::string line = "support " + record.name + ": selects no node";
        if (record.kind == Selection::area) {
            // an area wants its plane exactly: would the nodes within the tolerance do?
            BoundaryCondition plane = record;
            plane.kind = Selection::plane;
            if (const std::size_t near = select_nodes(plane, mesh).size(); near > 0)
                line +=
                    formatted("; %zu nodes lie within 1e-10 m of its plane: try the selection `plane`", near);
        }
        notice(out, std::move(line));
    }
}

void check_forces(const Model& model, const Run& run, ModelCheck& out) {
    for (std::size_t f = 0; f < model.forces.size(); ++f) {
        const AppliedForce& force = model.forces[f];
        const bool at_node = force.kind == ForceKind::node;
        const std::size_t reached = at_node ? run.force_node[f] > 0 : select_nodes(force, run.mesh).size();
        out.force_nodes.push_back(static_cast<std::int32_t>(reached));
        if (reached == 0)
            notice(out,
                   "force " + force.name + (at_node ? ": no node at its point" : ": no node in its box"));
    }
}

// Parts that `tied`, pairs of nodes, join are not told.
void check_contacts(const Model& model, const Mesh& mesh, std::span<const std::array<std::int32_t, 2>> tied,
                    ModelCheck& out, const Progress& progress) {
    const NodeElements around = elements_of_nodes(mesh);
    std::set<std::array<std::int32_t, 2>> joined;
    for (const auto& [a, b] : tied)
        for (const std::int32_t e : around.of(a))
            for (const std::int32_t f : around.of(b))
                joined.insert({std::min(mesh.p_ele_part_id[e], mesh.p_ele_part_id[f]),
                               std::max(mesh.p_ele_part_id[e], mesh.p_ele_part_id[f])});
    out.unjoined = find_unjoined_nodes(mesh, progress);
    std::erase_if(out.unjoined,
                  [&](const UnjoinedContact& contact) { return joined.contains(contact.part); });
    for (const UnjoinedContact& contact : out.unjoined) {
        const double* x = mesh.node(contact.first_node - 1);
        notice(
            out,
            formatted(
                "parts %s and %s touch without being joined: %ld nodes of the one and %ld of the other lie "
                "on its faces, the first at (%.6g, %.6g, %.6g), %ld are common: give both the same "
                "divisions there",
                model.parts[contact.part[0]].name.c_str(), model.parts[contact.part[1]].name.c_str(),
                contact.nodes[0], contact.nodes[1], x[0], x[1], x[2], contact.joined));
    }
}

// The pairs of nodes that rigid elements and springs join.
std::vector<std::array<std::int32_t, 2>> rigid_links(const Model& model, const RigidSystem& rigid) {
    std::vector<std::array<std::int32_t, 2>> links;
    for (const RigidBody& body : rigid.bodies)
        for (std::int32_t n : body.members) links.push_back({body.members.front(), n});
    for (const RigidCombine& springs : model.rigid_combines) {
        std::array<std::int32_t, 2> ends{-1, -1};
        for (std::size_t side = 0; side < 2; ++side) {
            const std::size_t b = springs.element[side];
            if (springs.element[side] >= 0 && b < rigid.bodies.size() && !rigid.bodies[b].members.empty())
                ends[side] = rigid.bodies[b].members.front();
        }
        const bool holds =
            std::any_of(springs.stiffness.begin(), springs.stiffness.end(), [](double k) { return k != 0; });
        if (holds && ends[0] >= 0 && ends[1] >= 0) links.push_back(ends);
    }
    return links;
}

void add_tied_links(const Freedoms& freedoms, std::vector<std::array<std::int32_t, 2>>& links) {
    const ConstraintMap& map = freedoms.constraints.map;
    for (const std::int32_t n : map.special_nodes())
        if (map.is_tied(n))
            for (const auto& [master, weight] : map.weights_of(n)) links.push_back({n, master});
}

// Flags of the nodes that something holds: supports, their springs, supports of rigid bodies.
std::vector<char> held_nodes_of(const Model& model, const Mesh& mesh, const Freedoms& freedoms) {
    std::vector<char> fixed(mesh.node_num(), 0);
    for (std::int32_t n : freedoms.numbering.fixed_nodes) fixed[n] = 1;
    for (const HeldDof& held : freedoms.constraints.held) fixed[held.dof / 3] = 1;
    for (const RigidBody& body : freedoms.rigid.bodies)
        for (const HeldDirection& held : body.held) fixed[held.node] = 1;
    for (const BoundaryCondition& record : model.boundary_conditions)
        if (record.options.spring.given() || record.options.normal_spring.given())
            for (const std::int32_t n : select_nodes(record, mesh))
                if (freedoms.node_elements.any(n)) fixed[n] = 1;
    return fixed;
}

// The profile of the free rows from the neighbour sets: the first free column of each. Members of rigid
// bodies have no rows. `entries`: of K.
Profile profile_of(const Mesh& mesh, const Freedoms& freedoms, std::int64_t& entries, Progress& progress) {
    std::vector<std::int32_t> equation(mesh.dof_num(), -1), free;
    for (std::int32_t dof : freedoms.numbering.free_dofs) {
        if (!freedoms.rigid.empty() && freedoms.rigid.body_of_node[dof / 3] >= 0) continue;
        equation[dof] = static_cast<std::int32_t>(free.size());
        free.push_back(dof);
    }
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, freedoms.node_elements, progress);
    Profile profile;
    profile.sky_start.push_back(0);
    for (std::int32_t dof : free) {
        const std::int32_t row = equation[dof];
        std::int32_t first = row;
        for (std::int64_t k = neighbours.start[dof / 3]; k < neighbours.start[dof / 3 + 1]; ++k) {
            const std::int32_t column = equation[3 * neighbours.nodes[k]];
            if (column < 0) continue;
            first = std::min(first, column);
            entries += 3;
        }
        profile.height.push_back(row - first + 1);
        profile.max_height = std::max(profile.max_height, row - first + 1);
        profile.sky_start.push_back(profile.sky_start.back() + row - first + 1);
    }
    profile.Ls_num = profile.sky_start.back();
    return profile;
}

// The pattern of K's free rows, without values.
SparseKM pattern_of(const Mesh& mesh, const Freedoms& freedoms, Progress& progress) {
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, freedoms.node_elements, progress);
    SparseKM km;
    count_overlap(neighbours, km, progress);
    build_index(neighbours, km, progress);
    if (progress.cancelled()) return {};
    km.K_value.resize(km.col_index.size());
    std::vector<std::int32_t> map(mesh.dof_num(), -1);
    std::int32_t row = 0;
    for (const std::int32_t dof : freedoms.numbering.free_dofs)
        if (freedoms.rigid.empty() || freedoms.rigid.body_of_node[dof / 3] < 0) map[dof] = row++;
    keep_rows(map, km);
    return km;
}

// What the skyline will need.
void check_skyline(const Settings& settings, const Profile& profile, std::int32_t diag_num, ModelCheck& out,
                   Progress& progress) {
    const Divisions divisions =
        plan_divisions(profile, settings.memory_size, settings.div_memory_size, diag_num, progress);
    const double panels = panel_megabytes(profile, settings.threads());
    out.divisions = divisions.count();
    out.factor_megabytes = profile.megabytes();
    const bool kept = divisions.count() == 1 && panels + out.memory_megabytes <= settings.memory_size;
    out.memory_megabytes += kept ? panels : std::min(panels, spilled_megabytes(profile, settings.threads()));
}

void check_sparse(const Settings& settings, const FrontTree& tree, double borders, std::int64_t entries,
                  ModelCheck& out) {
    const double kept = front_megabytes(tree);
    const bool keeps = keeps_fronts(tree, settings, borders, entries);
    out.divisions = keeps ? 0 : 1;
    out.factor_megabytes = keeps ? 0 : 8e-6 * static_cast<double>(tree.panel_doubles);
    out.memory_megabytes += keeps ? kept : spilled_front_megabytes(tree, settings.threads());
}

// What the factor will need; each motion of a rigid body has a dense row beside it.
void check_factor(const Mesh& mesh, const Settings& settings, const Freedoms& freedoms, ModelCheck& out,
                  Progress& progress) {
    std::int64_t entries = 0;
    const Profile profile = profile_of(mesh, freedoms, entries, progress);
    out.free_dofs = profile.rows() + freedoms.rigid.equations;
    constexpr double border_arrays = 2;  // K_fr and K_ff⁻¹ K_fr
    const double borders = border_arrays * 8e-6 * profile.rows() * freedoms.rigid.equations;
    out.memory_megabytes = borders + 20e-6 * static_cast<double>(entries);
    SolverChoice choice;
    if (!takes_skyline(settings, profile)) {
        const SparseKM pattern = pattern_of(mesh, freedoms, progress);
        if (progress.cancelled()) return;
        choice = choose_solver(settings, pattern, profile);
        out.solver = choice.text();
    }
    if (choice.kind == SolverKind::iterative)
        out.memory_megabytes += choice.iterative->megabytes;
    else if (choice.kind == SolverKind::sparse)
        check_sparse(settings, *choice.tree, borders, entries, out);
    else
        check_skyline(settings, profile, freedoms.diag_num, out, progress);
    if (settings.free_hd_size < out.factor_megabytes)
        notice(out, formatted("the factor needs %.1f MB of disk, FREE_HD_SIZE allows %.1f MB",
                              out.factor_megabytes, settings.free_hd_size));
}

}  // namespace

std::vector<Body> bodies_of(const Model& model, const Mesh& mesh, const Freedoms& freedoms) {
    std::vector<std::array<std::int32_t, 2>> links = rigid_links(model, freedoms.rigid);
    add_tied_links(freedoms, links);
    return linked_bodies(mesh, held_nodes_of(model, mesh, freedoms), links);
}

ModelCheck check_model(const Model& model, const Settings& settings, const Progress& progress) {
    SilentProgress silent(progress);
    const RunOptions options;
    Run run;
    Job job{model, settings, options, silent, run};
    ModelCheck out;
    Freedoms freedoms;
    const bool whole = make_run_mesh(job, Renumbering::by_settings, freedoms);
    if (!whole && progress.cancelled()) return out;  // what follows wants all of it
    const Mesh& mesh = run.mesh;
    check_elements(model, mesh, out);
    count_freedoms(job, freedoms);
    out.diag_num = freedoms.diag_num;
    out.hanging_nodes = freedoms.numbering.hanging_nodes;
    check_supports(model, mesh, freedoms, out);
    check_forces(model, run, out);
    for (const RigidBody& body : freedoms.rigid.bodies)
        out.rigid_members.push_back(static_cast<std::int32_t>(body.members.size()));
    for (const std::string& text : freedoms.rigid.notices) notice(out, text);
    if (run.report.status == RunStatus::done) measure_loads(job, out.loads);
    for (const std::string& text : run.report.remarks.errors) notice(out, text);
    for (const std::string& text : freedoms.constraints.notices) notice(out, text);
    for (const std::int32_t n : freedoms.constraints.map.special_nodes())
        out.tied_nodes += freedoms.constraints.map.is_tied(n);
    out.bodies = bodies_of(model, mesh, freedoms);
    for (std::size_t b = 0; b < out.bodies.size(); ++b)
        if (!out.bodies[b].supported)
            notice(out, formatted("body %zu (part %s): no support holds it", b + 1,
                                  model.parts[out.bodies[b].parts.front()].name.c_str()));
    std::vector<std::array<std::int32_t, 2>> tied;
    add_tied_links(freedoms, tied);
    check_contacts(model, mesh, tied, out, progress);
    if (mesh.element_num() < 1)
        notice(out, "the model has no solid elements: nothing to analyse");
    else if (!progress.cancelled())
        check_factor(mesh, settings, freedoms, out, silent);
    return out;
}

}  // namespace kestralum
