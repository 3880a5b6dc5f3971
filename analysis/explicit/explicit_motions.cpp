#include <algorithm>
#include <cmath>

#include "analysis/explicit/explicit_setup.h"
#include "model/format.h"
#include "model/free_faces.h"
#include "model/selection.h"

namespace kestralum {

namespace {

// Nodes on solid elements that a velocity record selects.
std::vector<std::int32_t> nodes_of(const VelocityRecord& record, const Job& job,
                                   const NodeElements& node_elements) {
    std::vector<std::int32_t> nodes = select_nodes(record, job.model.parts, job.mesh());
    std::erase_if(nodes, [&](std::int32_t n) {
        return node_elements.start[n] == node_elements.start[static_cast<std::size_t>(n) + 1];
    });
    return nodes;
}

// The members among the nodes of a record, body by body.
void add_members(std::span<const std::int32_t> nodes, const VelocityRecord& record, const ExplicitState& s,
                 std::vector<DrivenMembers>& out) {
    if (!s.bodies) return;
    // a later record takes over what an earlier one says of a node
    for (DrivenMembers& earlier : out)
        if (earlier.axis == record.axis)
            std::erase_if(earlier.nodes,
                          [&](std::int32_t n) { return std::ranges::binary_search(nodes, n); });
    const std::size_t first = out.size();
    for (std::int32_t n : nodes) {
        const std::int32_t body = s.bodies->system().body_of_node[n];
        if (body < 0) continue;
        auto at = std::find_if(out.begin() + std::ptrdiff_t(first), out.end(),
                               [&](const DrivenMembers& d) { return d.body == body; });
        if (at == out.end())
            at = out.insert(
                out.end(),
                DrivenMembers{body, {}, record.axis, record.velocity.start, record.velocity, record.name});
        at->nodes.push_back(n);
    }
}

bool set_driven(Job& job, ExplicitState& s) {
    for (const VelocityRecord& record : job.model.explicit_tables.velocity_inputs) {
        DrivenDofs driven{record.velocity, {}, record.name};
        const auto nodes = nodes_of(record, job, s.freedoms.node_elements);
        const std::size_t bodies_before = s.driven_members.size();
        add_members(nodes, record, s, s.driven_members);
        for (std::size_t k = bodies_before; k < s.driven_members.size(); ++k)
            if (const RigidBody& body = s.bodies->system().bodies[s.driven_members[k].body]; body.count() < 6)
                remark(job, "velocity input " + record.name + ": supports hold rigid element " +
                                job.model.rigid_elements[body.record].name +
                                ": it moves only as they let it");
        for (std::int32_t n : nodes) {
            if (s.bodies && s.bodies->is_member(n)) continue;
            if (s.supports && (s.supports->is_turned(n) || s.supports->is_tied(n))) {
                const double* x = job.mesh().node(n);
                return job.fail(
                    RunStatus::bad_input,
                    formatted("velocity input %s: its node at (%.6g, %.6g, %.6g) is %s", record.name.c_str(),
                              x[0], x[1], x[2],
                              s.supports->is_tied(n)
                                  ? "tied to others: drive those"
                                  : "held along a normal that is no axis: move the support, by ux="));
            }
            driven.places.push_back(4 * n + record.axis);
            if (s.supports) s.supports->release(driven.places.back());
        }
        if (driven.places.empty()) {
            if (s.driven_members.size() > bodies_before) continue;
            remark(job, "velocity input " + record.name + ": selects no node");
            continue;
        }
        // a later record takes over what an earlier one drove
        for (DrivenDofs& earlier : s.driven)
            std::erase_if(earlier.places, [&](std::int32_t at) {
                return std::binary_search(driven.places.begin(), driven.places.end(), at);
            });
        for (std::int32_t at : driven.places) {
            s.supported[at] = 0;
            s.damping[at] = 0;
        }
        s.driven.push_back(std::move(driven));
    }
    return true;
}

void set_update_factors(const SetUp& set_up, ExplicitState& s) {
    std::vector<char> ruled(s.supported.begin(), s.supported.end());
    for (const DrivenDofs& driven : s.driven)
        for (std::int32_t at : driven.places) ruled[at] = 1;
    if (s.supports) {
        for (const std::int32_t n : s.supports->special_nodes())
            for (std::size_t c = 0; c < 3; ++c) {
                ruled[4 * n + c] = 1;
                s.supported[4 * n + c] = 0;  // what holds it is not along x, y or z
                s.damping[4 * n + c] = 0;
            }
        for (const std::size_t place : s.supports->moved_places()) s.supported[place] = 0;
    }
    for (std::size_t k = 0; k < s.mass.size(); ++k) {
        if (ruled[k]) continue;
        const double per_step = s.mass[k] / s.d_time, half = 0.5 * s.damping[k];
        s.a[k] = (per_step - half) / (per_step + half);
        s.b[k] = 1 / (per_step + half);
    }
    if (set_up.own_mass.empty()) return;
    s.contact_mass = s.mass;
    s.contact_b = s.b;
    for (const std::int32_t n : s.supports->special_nodes())
        for (std::size_t c = 0; c < 3; ++c) {
            const double m = s.contact_mass[4 * n + c] = set_up.own_mass[3 * n + c];
            s.contact_b[4 * n + c] = s.d_time / m;
        }
}

void set_initial_velocities(Job& job, ExplicitState& s) {
    const auto& records = job.model.explicit_tables.initial_velocities;
    if (records.empty()) return;
    std::vector<DrivenMembers> members;
    for (std::size_t k = 0; k < records.size(); ++k) {
        const VelocityRecord& record = records[k];
        const auto nodes = nodes_of(record, job, s.freedoms.node_elements);
        job.progress.print(" INITIAL_VELOCITY[%zu]: %d, %d\n", k, static_cast<std::int32_t>(record.kind),
                           record.axis);
        job.progress.print("  c_ = %zu\n", nodes.size());
        if (nodes.empty()) remark(job, "initial velocity " + record.name + ": selects no node");
        std::int32_t set = 0;
        add_members(nodes, record, s, members);
        for (std::int32_t n : nodes) {
            const std::size_t at = 4 * n + static_cast<std::size_t>(record.axis);
            const bool special = s.supports && (s.supports->is_turned(n) || s.supports->is_tied(n));
            if (s.b[at] == 0 && !special) continue;
            s.v[at] = record.velocity.start;
            ++set;
        }
        job.progress.print("%zu/%zu", k + 1, records.size());
        job.progress.print("  %d", set);
        job.progress.print("\n");
    }
    if (s.supports) {
        s.supports->project(s.v.data());
        s.supports->follow(s.v.data());
    }
    if (s.bodies) s.bodies->start(members, s.d_time);
    job.progress.print("INITIAL_VELOCITY set\n");
}

// A fixed body has a support or a driven degree of freedom; bodies are connected by common nodes.
bool some_body_is_free(const Mesh& mesh, const ExplicitState& s) {
    std::vector<std::array<std::int32_t, 2>> ties;
    const ConstraintMap& map = s.freedoms.constraints.map;
    for (std::size_t k = 0; k < map.special_nodes().size(); ++k)
        for (const auto& [master, weight] : map.weights(k)) ties.push_back({map.special_nodes()[k], master});
    const std::vector<std::int32_t> body = connected_nodes(mesh, ties);
    std::vector<char> held(body.size(), 0);
    for (std::size_t n = 0; n < body.size(); ++n)
        if (map.is_tied(static_cast<std::int32_t>(n)))
            continue;
        else if (s.b[4 * n] == 0 || s.b[4 * n + 1] == 0 || s.b[4 * n + 2] == 0)
            held[body[n]] = 1;
    return std::any_of(mesh.connectivity.begin(), mesh.connectivity.end(),
                       [&](std::int32_t n) { return !held[body[node_index(n)]]; });
}

void set_contacts(Job& job, ExplicitState& s) {
    const ExplicitTables& tables = job.model.explicit_tables;
    if (tables.walls.empty() && !s.contacts) return;
    const int sharing = static_cast<int>(tables.walls.size()) + (s.contacts ? 2 : 0);
    if (!tables.walls.empty()) {
        if (s.contact_nodes.empty())
            s.contact_nodes = surface_nodes(surface_triangles(job.mesh()), job.mesh().node_num());
        std::vector<char> members(s.bodies ? job.mesh().node_num() : 0, 0);
        for (std::size_t n = 0; n < members.size(); ++n)
            members[n] = s.bodies->is_member(static_cast<std::int32_t>(n));
        s.walls.emplace(tables.walls, job.model.parameters, job.mesh(), s.contact_nodes, std::move(members),
                        s.d_time, s.stable_step, sharing);
        const double ratio = s.walls->stiff_spring(s.contact_mass.empty() ? s.mass : s.contact_mass);
        double zeta = 0;
        for (const RigidWall& wall : tables.walls) zeta = std::max(zeta, wall.damping);
        if (ratio > 0) {
            const double w2 = 4 / (s.stable_step * s.stable_step) + 1 / ratio;
            const double room = std::sqrt(1 + zeta * zeta) - zeta;
            s.stable_step = 2 / std::sqrt(w2) * room;
            s.added_rate += s.step_factor * s.step_factor / ratio;
            s.step_factor *= room;
            job.progress.print("Stable time step=%.3e[s] with the walls' penalty\n", s.stable_step);
        }
    }
    if (s.contacts) s.contacts->tune(s.d_time, s.stable_step, 1 + static_cast<int>(tables.walls.size()));
    if (s.d_time > 0.9 * s.bound->undeformed().step)
        remark(job, "d_time is above 0.9 of the stable step: walls and contact are soft, to stay stable");
}

void warn_of_step(Job& job, const ExplicitState& s) {
    if (!s.adaptive.on && s.d_time > s.stable_step)
        remark(job, formatted("d_time = %.3e s is above the stable step of %.3e s: the run may diverge",
                              s.d_time, s.stable_step));
}

// Where the supports stand at the start.
bool start_supports(Job& job, ExplicitState& s) {
    if (!s.supports) return true;
    for (const std::string& name : s.supports->start(s.d_time, node_arrays(s)))
        remark(job, "support " + name + ": its displacement at time 0 is not 0: the run starts with it");
    if (!s.supports->trouble().empty()) return job.fail(RunStatus::bad_input, s.supports->trouble());
    const auto rubs = [](const RigidWall& wall) { return wall.friction > 0; };
    if (s.walls && s.supports->has_special_nodes() &&
        std::ranges::any_of(job.model.explicit_tables.walls, rubs))
        remark(job, "walls do not rub at tied nodes and at those held along a normal that is no axis");
    return true;
}

}  // namespace

bool set_motions(Job& job, const SetUp& set_up, ExplicitState& s) {
    if (!set_driven(job, s)) return false;
    set_update_factors(set_up, s);
    set_initial_velocities(job, s);
    set_contacts(job, s);
    if (!start_supports(job, s)) return false;
    warn_of_step(job, s);
    if (s.damped && some_body_is_free(job.mesh(), s))
        remark(job,
               "C_alfa damps the rigid motion of a body without supports too, and more so on finer meshes");
    return true;
}

}  // namespace kestralum
