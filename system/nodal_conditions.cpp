#include "system/nodal_conditions.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>

#include "model/format.h"
#include "model/selection.h"
#include "system/assembly.h"
#include "system/linear_loads.h"
#include "system/load_set.h"
#include "system/support_springs.h"

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

// Orthonormal and at right angles to all motions of the body, in its motions' units with the size of the body
// as that of an angle.
std::vector<std::array<double, 6>> held_motions(const RigidBody& body) {
    const double size = body.size > 0 ? body.size : 1;
    std::vector<std::array<double, 6>> basis;
    const auto add = [&](std::array<double, 6> v) {
        const double before = std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
        for (int round = 0; round < 2; ++round)
            for (const auto& b : basis) {
                const double share = std::inner_product(v.begin(), v.end(), b.begin(), 0.0);
                for (std::size_t c = 0; c < 6; ++c) v[c] -= share * b[c];
            }
        const double left = std::sqrt(std::inner_product(v.begin(), v.end(), v.begin(), 0.0));
        if (!(left > 1e-6 * before)) return false;
        for (double& value : v) value /= left;
        basis.push_back(v);
        return true;
    };
    for (const Vec6& motion : body.motions) {
        std::array<double, 6> v = motion;
        for (std::size_t c = 3; c < 6; ++c) v[c] *= size;
        add(v);
    }
    std::vector<std::array<double, 6>> held;
    for (std::size_t c = 0; c < 6; ++c) {
        std::array<double, 6> v{};
        v[c] = 1;
        if (!add(v)) continue;
        held.push_back(basis.back());
        for (std::size_t k = 3; k < 6; ++k) held.back()[k] *= size;
    }
    return held;
}

// About another point than the pivot.
std::array<double, 6> shifted(const Vec6& load, const Vec3& pivot, const Vec3& point) {
    const Vec3 turn = cross(minus(pivot, point), {load[0], load[1], load[2]});
    return {load[0], load[1], load[2], load[3] + turn[0], load[4] + turn[1], load[5] + turn[2]};
}

RigidMotion motion_of(const Model& model, const RigidSystem& rigid, std::int32_t b,
                      const std::vector<std::int32_t>& model_node) {
    const RigidBody& body = rigid.bodies[b];
    RigidMotion out;
    out.name = model.rigid_elements[body.record].name;
    for (const std::int32_t n : body.members) out.members.push_back(model_node[n]);
    std::ranges::sort(out.members);
    const bool in_part = !body.held.empty();
    out.held = !in_part && !body.fixed.empty();
    out.point = out.held || in_part ? body.pivot : body.reference;
    if (in_part)
        out.no_motion = held_motions(body);
    else
        out.no_turn = held_rotations(body);
    out.load = shifted(rigid_force_resultant(rigid, b, {}, model.rigid_forces), body.pivot, out.point);
    return out;
}

// Which nodes of the run are which of the model's.
std::vector<std::int32_t> model_numbers(const std::vector<std::int32_t>& node_of) {
    std::vector<std::int32_t> model_node(node_of.size());
    for (std::size_t n = 0; n < node_of.size(); ++n) model_node[node_of[n]] = static_cast<std::int32_t>(n);
    return model_node;
}

// What supports with options hold, by the model's nodes.
std::vector<HeldDof> held_by_node(const Freedoms& freedoms, const std::vector<std::int32_t>& model_node) {
    std::vector<HeldDof> held = freedoms.constraints.held;
    std::ranges::stable_sort(held, {}, [&](const HeldDof& h) { return model_node[h.dof / 3]; });
    return held;
}

// The springs per area, exactly: an entry off the diagonal of their stiffness is a spring of the opposite
// sign between the two, and what the entries of a row sum up to one to the ground.
bool find_ground_springs(Job& job, const Freedoms& freedoms, const std::vector<std::int32_t>& model_node,
                         NodalConditions& out) {
    constexpr double rounding = 1e-13;
    std::map<std::pair<std::int32_t, std::int32_t>, double> off;
    std::map<std::int32_t, double> sums;
    double largest = 0;
    const auto add = [&](std::span<const std::int32_t> nodes, std::span<const double> block) {
        const std::size_t size = 3 * nodes.size();
        const auto dof = [&](std::size_t k) {
            return 3 * model_node[nodes[k / 3]] + static_cast<std::int32_t>(k % 3);
        };
        for (std::size_t r = 0; r < size; ++r)
            for (std::size_t c = 0; c < size; ++c) {
                const double value = block[r * size + c];
                if (value == 0) continue;
                largest = std::max(largest, std::abs(value));
                sums[dof(r)] += value;
                if (dof(r) < dof(c)) off[{dof(r), dof(c)}] += value;
            }
    };
    const std::string refused = all_springs(job.model, job.mesh(), freedoms.node_elements, add);
    if (!refused.empty()) return job.fail(RunStatus::bad_input, refused);
    for (const auto& [dof, sum] : sums)
        if (std::abs(sum) > rounding * largest) out.ground.push_back({dof, -1, sum});
    for (const auto& [dofs, value] : off)
        if (std::abs(value) > rounding * largest) out.ground.push_back({dofs.first, dofs.second, -value});
    return true;
}

// Temperatures of a load case at the nodes (model's numbering); counts those that should have two.
std::vector<double> find_warmth(const Job& job, const LoadSet& loads, const std::string& load_case,
                                std::vector<char>& torn) {
    const Model& model = job.model;
    const Mesh& mesh = model.mesh;
    std::vector<double> warmth(mesh.node_num(), 0.0);
    std::vector<char> known(mesh.node_num(), 0);
    for (std::size_t p = 0; p < model.parts.size(); ++p) {
        if (model.materials[model.parts[p].material_id].expansion == 0) continue;
        std::vector<double> own(mesh.node_num(), 0.0);
        std::vector<char> of_part(mesh.node_num(), 0);
        for (std::size_t k = 0; k < mesh.connectivity.size(); ++k)
            if (mesh.p_ele_part_id[k / mesh.node_per_element()] == static_cast<std::int32_t>(p))
                of_part[node_index(mesh.connectivity[k])] = 1;
        for (const Load* load : loads.temperatures)
            if (acts_in_case(load->options.case_name, load_case) &&
                (load->part_name == "all" || is_of_part(model.parts, p, load->part_name)))
                for (std::int32_t n = 0; n < mesh.node_num(); ++n)
                    if (of_part[n])
                        own[n] += load_factor(load->options, 1, Growth::whole) *
                                  (load->value.at(mesh.node(n), 1) - load->reference);
        for (std::int32_t n = 0; n < mesh.node_num(); ++n) {
            if (!of_part[n]) continue;
            const double size = std::max(std::abs(own[n]), std::abs(warmth[n]));
            if (known[n] && std::abs(own[n] - warmth[n]) > 1e-9 * size) torn[n] = 1;
            if (!known[n] || std::abs(own[n]) > std::abs(warmth[n])) warmth[n] = own[n];
            known[n] = 1;
        }
    }
    return warmth;
}

// What the cases apply; the held directions and tied nodes stand in `out` already.
bool find_case_conditions(Job& job, const LoadSet& loads, const Freedoms& freedoms, NodalConditions& out) {
    std::vector<CaseTerms> cases;
    if (!find_cases(job, cases)) return false;
    const std::vector<std::int32_t>& node_of = job.run.node_of;
    std::vector<char> torn(node_of.size(), 0);
    for (const CaseTerms& terms : cases) {
        LinearLoad sum;
        ConditionCase& one = out.cases.emplace_back();
        one.name = terms.name;
        for (const auto& [name, factor] : terms.terms) {
            add_load(sum, factor, load_of_case(job, loads, freedoms, name));
            if (loads.temperatures.empty()) continue;
            const std::vector<double> warmth = find_warmth(job, loads, name, torn);
            one.warmth.resize(warmth.size(), 0.0);
            for (std::size_t n = 0; n < warmth.size(); ++n) one.warmth[n] += factor * warmth[n];
        }
        one.load.resize(3 * node_of.size());
        for (std::size_t d = 0; d < one.load.size(); ++d)
            one.load[d] = sum.applied.nodal[3 * node_of[d / 3] + d % 3];
        for (std::size_t b = 0; b < out.rigid.size(); ++b)
            one.rigid.push_back(
                shifted(sum.applied.rigid[b], freedoms.rigid.bodies[b].pivot, out.rigid[b].point));
        for (const HeldDof& held : held_by_node(freedoms, model_numbers(node_of)))
            one.held.push_back(sum.held.empty() ? 0 : sum.held[held.dof]);
        if (!job.goes_on()) return false;
    }
    if (const auto count = std::ranges::count(torn, 1); count > 0)
        job.note(
            formatted("temperature: %td nodes between parts that are heated differently have one "
                      "temperature, the one farther from that without strain",
                      count));
    return true;
}

// Into the numbering of the model's mesh.
void carry_over(const Job& job, const Freedoms& freedoms, NodalConditions& out) {
    const Model& model = job.model;
    const std::vector<std::int32_t>& node_of = job.run.node_of;
    const std::vector<std::int32_t> model_node = model_numbers(node_of);
    out.load.resize(3 * node_of.size());
    for (std::size_t d = 0; d < out.load.size(); ++d) out.load[d] = job.run.load[3 * node_of[d / 3] + d % 3];
    const NodeConstraints& constraints = freedoms.constraints;
    for (const HeldDof& held : held_by_node(freedoms, model_node))
        out.held.push_back({model_node[held.dof / 3], constraints.map.axis(held.dof)});
    for (const std::int32_t n : constraints.map.special_nodes()) {
        if (!constraints.map.is_tied(n)) continue;
        TiedMotion& tied = out.ties.emplace_back();
        tied.node = model_node[n];
        for (const auto& [master, weight] : constraints.map.weights_of(n))
            tied.weights.emplace_back(model_node[master], weight);
        std::ranges::sort(tied.weights);
    }
    std::ranges::sort(out.ties, {}, &TiedMotion::node);
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
    return find_ground_springs(job, freedoms, model_numbers(job.run.node_of), out) &&
           find_case_conditions(job, loads, freedoms, out) && job.goes_on();
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
