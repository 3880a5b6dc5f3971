#include "system/model_check.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "conditions/constraints.h"
#include "elements/element_type.h"
#include "model/console.h"
#include "model/topology.h"
#include "solver/ordering.h"
#include "solver/panels.h"
#include "solver/profile.h"
#include "system/linear_system.h"

namespace kestralum {

namespace {

void check_elements(const ModelStore& store, ModelCheck& out) {
    const Mesh& mesh = store.mesh;
    const ElementType& type = element_type(mesh.element_type);
    ElementPoints points;
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const bool sound = evaluate_points(type, mesh, e, points);
        const ElementPlace place{e, element_volume(type, points), element_centre(mesh, e)};
        out.volume += place.volume;
        const Part& part = store.parts[mesh.p_ele_part_id[e]];
        if (part.material_id >= 0 && static_cast<std::size_t>(part.material_id) < store.materials.size())
            out.mass += place.volume * store.materials[part.material_id].density;
        if (out.smallest.element < 0 || place.volume < out.smallest.volume) out.smallest = place;
        if (out.largest.element < 0 || place.volume > out.largest.volume) out.largest = place;
        if (!sound && ++out.bad_count <= 100) out.bad.push_back(place);
    }
}

// Bodies: elements that hang together through common nodes and `links`, pairs of 0-based nodes.
void check_bodies(const Mesh& mesh, std::span<const char> fixed,
                  std::span<const std::array<std::int32_t, 2>> links, ModelCheck& out) {
    const std::vector<std::int32_t> lowest = connected_nodes(mesh, links);
    const std::size_t nodes = mesh.node_per_element();
    std::vector<std::int32_t> body_of(lowest.size(), -1);  // of each lowest node
    for (std::int32_t e = 0; e < mesh.element_num(); ++e) {
        const std::size_t first = node_index(mesh.connectivity[static_cast<std::size_t>(e) * nodes]);
        std::int32_t& body = body_of[lowest[first]];
        if (body < 0) {
            body = static_cast<std::int32_t>(out.bodies.size());
            out.bodies.emplace_back();
        }
        Body& b = out.bodies[body];
        ++b.elements;
        const std::int32_t part = mesh.p_ele_part_id[e];
        if (b.parts.empty() || b.parts.back() != part) b.parts.push_back(part);
    }
    for (std::size_t n = 0; n < lowest.size(); ++n) {
        const std::int32_t body = body_of[lowest[n]];
        if (body >= 0 && fixed[n]) out.bodies[body].supported = true;
    }
    for (Body& b : out.bodies) {
        std::sort(b.parts.begin(), b.parts.end());
        b.parts.erase(std::unique(b.parts.begin(), b.parts.end()), b.parts.end());
    }
}

void notice(ModelCheck& out, std::string text) {
    out.remarks.notices.push_back(std::move(text));
}

void check_supports(const ModelStore& store, ModelCheck& out) {
    std::vector<char> on_element(store.mesh.node_num(), 0);
    for (std::int32_t n : store.mesh.connectivity) on_element[node_index(n)] = 1;
    for (const BoundaryCondition& record : store.boundary_conditions) {
        const auto nodes = select_nodes(record, store.mesh);
        const auto selected = static_cast<std::int32_t>(
            std::count_if(nodes.begin(), nodes.end(), [&](std::int32_t n) { return on_element[n]; }));
        out.support_nodes.push_back(selected);
        if (selected > 0) continue;
        std::string line = "support " + record.name + ": selects no node";
        if (record.kind == Selection::area) {
            // an area wants its plane exactly: would the nodes within the tolerance do?
            BoundaryCondition plane = record;
            plane.kind = Selection::plane;
            const auto near = select_nodes(plane, store.mesh).size();
            if (near > 0)
                line += console::format(
                    "; %zu nodes lie within 1e-10 m of its plane: try the selection `plane`", near);
        }
        notice(out, std::move(line));
    }
}

void check_forces(const ModelStore& store, ModelCheck& out) {
    constexpr double tolerance = 1e-7;  // m, as the loads take it
    std::vector<AppliedForce> forces = store.forces;
    resolve_force_points(store.mesh, forces);
    for (const AppliedForce& force : forces) {
        std::int32_t reached = force.node > 0;
        for (std::int32_t n = 0; force.kind == ForceKind::area && n < store.mesh.node_num(); ++n) {
            const double* x = store.mesh.coordinates.data() + 3 * static_cast<std::ptrdiff_t>(n);
            bool inside = true;
            for (std::size_t c = 0; c < 3; ++c)
                inside =
                    inside && x[c] > force.box[2 * c] - tolerance && x[c] < force.box[2 * c + 1] + tolerance;
            reached += inside;
        }
        out.force_nodes.push_back(reached);
        if (reached == 0)
            notice(out,
                   "force " + force.name +
                       (force.kind == ForceKind::node ? ": no node at its point" : ": no node in its box"));
    }
}

// What the rigid records select.
RigidSystem check_rigid(const ModelStore& store, const NodeElements& node_elements, const DofNumbering& held,
                        ModelCheck& out) {
    RigidSystem rigid;
    RunReport report;
    find_rigid_bodies(store, node_elements, held, rigid, report);
    for (const RigidBody& body : rigid.bodies)
        out.rigid_members.push_back(static_cast<std::int32_t>(body.members.size()));
    for (const auto* texts : {&report.remarks.notices, &report.remarks.errors})
        for (const std::string& text : *texts) notice(out, text);
    return rigid;
}

// The pairs of nodes that rigid elements and springs hold together.
std::vector<std::array<std::int32_t, 2>> rigid_links(const ModelStore& store, const RigidSystem& rigid) {
    std::vector<std::array<std::int32_t, 2>> links;
    for (const RigidBody& body : rigid.bodies)
        for (std::int32_t n : body.members) links.push_back({body.members.front(), n});
    for (const RigidCombine& springs : store.rigid_combines) {
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

// Orders a copy of the mesh and counts what the factor will need: the members of rigid bodies have no rows in
// it, each motion of a body has a dense one beside it.
void check_factor(const ModelStore& store, const Settings& settings, const RigidSystem& rigid,
                  ModelCheck& out) {
    Mesh mesh = store.mesh;
    out.diag_num = order_nodes(mesh, settings.ordering_type);
    const NodeElements node_elements = elements_of_nodes(mesh);
    std::int32_t fn_free = 3 * mesh.node_num();
    DofNumbering numbering =
        apply_boundary_conditions(store.boundary_conditions, mesh, node_elements, fn_free);
    out.hanging_nodes = numbering.hanging_nodes;
    if (rigid.bodies.size() == store.rigid_elements.size()) {  // otherwise the records contradict
        const RigidSystem ordered =
            build_rigid_system(store.rigid_elements, mesh, node_elements, numbering.fixed_nodes);
        std::vector<std::int32_t> free;
        for (std::int32_t dof : numbering.free_dofs) {
            std::int32_t& equation = numbering.dof_map[dof];
            equation = !ordered.empty() && ordered.body_of_node[dof / 3] >= 0
                           ? -1
                           : static_cast<std::int32_t>(free.size());
            if (equation >= 0) free.push_back(dof);
        }
        numbering.free_dofs = std::move(free);
    }
    const auto rows = static_cast<std::int64_t>(numbering.free_dofs.size());
    out.free_dofs = rows + rigid.equations;
    const NodeNeighbours neighbours = neighbours_of_nodes(mesh, node_elements);
    // the profile from the neighbour sets: the first free column of each free row
    Profile profile;
    profile.sky_start.push_back(0);
    std::int64_t entries = 0;
    for (std::int32_t dof : numbering.free_dofs) {
        const std::size_t node = dof / 3;
        const std::int32_t row = numbering.dof_map[dof];
        std::int32_t first = row;
        for (std::int64_t k = neighbours.start[node]; k < neighbours.start[node + 1]; ++k) {
            const std::int32_t equation = numbering.dof_map[3 * neighbours.nodes[k]];
            if (equation < 0) continue;
            first = std::min(first, equation);
            entries += 3;
        }
        profile.height.push_back(row - first + 1);
        profile.max_height = std::max(profile.max_height, row - first + 1);
        profile.sky_start.push_back(profile.sky_start.back() + row - first + 1);
    }
    profile.Ls_num = profile.sky_start.back();
    const Divisions divisions =
        plan_divisions(profile, settings.memory_size, settings.div_memory_size, out.diag_num);
    const PanelGrid grid = make_panel_grid(profile);
    std::int64_t held = 0;  // doubles of the panels in memory: all, or those of two bands
    for (std::int32_t I = 0; I < grid.panels(); ++I) held += grid.doubles(I);
    if (divisions.count() > 1)
        held = std::min(held, (2 * std::int64_t{profile.max_height} / grid.nb + 2) * grid.largest_panel());
    out.divisions = divisions.count();
    out.factor_megabytes = profile.megabytes();
    constexpr std::int64_t border_arrays = 2;  // K_fr and K_ff⁻¹ K_fr
    held += border_arrays * rows * rigid.equations;
    out.memory_megabytes = (static_cast<double>(held) * 8 + static_cast<double>(entries) * 20) / 1e6;
    if (settings.free_hd_size < out.factor_megabytes)
        notice(out, console::format("the factor needs %.1f MB of disk, FREE_HD_SIZE allows %.1f MB",
                                    out.factor_megabytes, settings.free_hd_size));
}

}  // namespace

ModelCheck check_model(const ModelStore& store, const Settings& settings) {
    const console::Silence silence;
    ModelCheck out;
    check_elements(store, out);
    check_supports(store, out);
    check_forces(store, out);
    const NodeElements node_elements = elements_of_nodes(store.mesh);
    std::int32_t fn_free = 3 * store.mesh.node_num();
    const DofNumbering held =
        apply_boundary_conditions(store.boundary_conditions, store.mesh, node_elements, fn_free);
    std::vector<char> fixed(store.mesh.node_num(), 0);
    for (std::int32_t n : held.fixed_nodes) fixed[n] = 1;
    const RigidSystem rigid = check_rigid(store, node_elements, held, out);
    check_bodies(store.mesh, fixed, rigid_links(store, rigid), out);
    for (std::size_t b = 0; b < out.bodies.size(); ++b)
        if (!out.bodies[b].supported)
            notice(out, console::format("body %zu (part %s): no support holds it", b + 1,
                                        store.parts[out.bodies[b].parts.front()].name.c_str()));
    if (store.mesh.element_num() < 1)
        notice(out, "the model has no solid elements: nothing to analyse");
    else
        check_factor(store, settings, rigid, out);
    return out;
}

}  // namespace kestralum
