#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <utility>

#include "analysis/explicit/explicit_state.h"
#include "analysis/section_report.h"
#include "elements/finite_elements.h"
#include "model/format.h"
#include "model/selection.h"
#include "system/reactions.h"

namespace kestralum {

namespace {

const char* const axis_letter[] = {"x", "y", "z"};

void add_vector(std::vector<std::string>& columns, const std::string& name) {
    for (const char* axis : axis_letter) columns.push_back(name + "_" + axis);
}

// Sums over the nodes at t_n, in node order: kinetic and external energy, momenta, reactions.
void sum_nodes(ExplicitState& s) {
    s.momentum = s.angular_momentum = s.reaction = {};
    const LineDoubles& F = s.loads ? s.loads->constant() : s.F;
    double kinetic = 0, external = 0;
    for (std::size_t n = 0; n < static_cast<std::size_t>(s.owned); ++n) {
        std::array<double, 3> p{};
        const bool member = s.bodies && s.bodies->is_member(static_cast<std::int32_t>(n));
        for (std::size_t c = 0; c < 3 && member; ++c) external += F[4 * n + c] * s.u[4 * n + c];
        if (member) continue;
        for (std::size_t c = 0; c < 3; ++c) {
            const std::size_t k = 4 * n + c;
            kinetic += 0.5 * s.v[k] * s.mass[k] * s.v_new[k];
            external += F[k] * s.u[k];
            p[c] = 0.5 * s.mass[k] * (s.v[k] + s.v_new[k]);
            s.momentum[c] += p[c];
            if (s.supported[k]) s.reaction[c] += s.R[k] - s.F[k] - s.F_contact[k];
        }
        const double* x = s.x.data() + 4 * n;
        for (std::size_t c = 0; c < 3; ++c)
            s.angular_momentum[c] += x[(c + 1) % 3] * p[(c + 2) % 3] - x[(c + 2) % 3] * p[(c + 1) % 3];
    }
    for (const DrivenDofs& driven : s.driven)
        for (std::int32_t place : driven.places) {
            const std::size_t k = place;
            if (place / 4 >= s.owned) continue;
            s.reaction[k % 4] +=
                s.mass[k] * (s.v_new[k] - s.v[k]) / s.mean + s.R[k] - s.F[k] - s.F_contact[k];
        }
    if (s.counts_bodies()) {
        kinetic += s.bodies->kinetic();
        external += s.rigid_work.at;
        const Vec3 p = s.bodies->momentum(), L = s.bodies->angular_momentum(), r = s.bodies->reaction();
        for (std::size_t c = 0; c < 3; ++c) {
            s.momentum[c] += p[c];
            s.angular_momentum[c] += L[c];
            s.reaction[c] += r[c];
        }
    }
    if (s.supports) {
        const Vec3 held = s.supports->reaction(node_arrays(s), s.mean), spring = s.springs.force(s.u.data());
        for (std::size_t c = 0; c < 3; ++c) s.reaction[c] += held[c] + spring[c];
    }
    if (s.loads) external += s.load_work.at;
    if (s.heat) external += s.blocks->heat_work();
    s.energies.kinetic = kinetic;
    s.energies.external = external;
}

// Of this process' elements and nodes.
void sum_energies(ExplicitState& s) {
    ExplicitEnergies& e = s.energies;
    e.internal = s.blocks->internal_energy() + (s.counts_bodies() ? s.bodies->spring_energy() : 0.0);
    if (!s.springs.empty()) e.internal += s.springs.energy(s.u.data());
    e.plastic = s.blocks->plastic_energy();
    e.damping = s.damping_work.at;
    e.viscous = s.blocks->viscous_energy();
    e.eroded = s.erosion ? s.erosion->energy() : 0;
    if (s.erosion) s.eroded = s.erosion->total(s.ranks);
    e.wall = s.wall_work.at;
    e.contact = s.contact_work.at;
    e.support = s.support_work.at;
}

// The sums of all processes, with each wall's force.
void add_up(ExplicitState& s) {
    ExplicitEnergies& e = s.energies;
    s.friction = s.friction_work.at;
    s.wall_force.clear();
    for (std::size_t k = 0; s.walls && k < s.walls->size(); ++k) s.wall_force.push_back(s.walls->force(k));
    std::vector<double*> places{&e.kinetic,  &e.internal, &e.plastic, &e.damping, &e.wall,    &e.contact,
                                &e.external, &e.support,  &e.viscous, &e.eroded,  &s.friction};
    for (std::array<double, 3>* sum : {&s.momentum, &s.angular_momentum, &s.reaction})
        for (double& value : *sum) places.push_back(&value);
    for (Vec3& force : s.wall_force)
        for (double& value : force) places.push_back(&value);
    std::vector<double> values;
    for (const double* place : places) values.push_back(*place);
    s.ranks->sum(values);
    for (std::size_t k = 0; k < values.size(); ++k) *places[k] = values[k];
    sum_wall_course(s);
}

void balance(ExplicitState& s) {
    const ExplicitEnergies& e = s.energies;
    if (s.step == 0) s.start_energy = e.total();
    for (double part : {e.kinetic, e.internal, e.damping, e.viscous, e.eroded, std::abs(e.wall),
                        std::abs(e.contact), std::abs(e.external), std::abs(e.support)})
        s.largest_energy = std::max(s.largest_energy, part);
    s.drift = s.largest_energy > 0 ? (e.total() - s.start_energy) / s.largest_energy : 0.0;
    if (!(std::abs(s.drift) <= std::abs(s.largest_drift))) s.largest_drift = s.drift;
}

// Displacement, velocity before and after of one node.
struct NodeMotion {
    const double *u, *v, *v_new;
};

void add_row(ExplicitState& s, const auto& motion_of) {
    std::vector<double>& row = s.history.values;
    const ExplicitEnergies& e = s.energies;
    row.push_back(s.time());
    for (double value :
         {e.kinetic, e.internal, e.plastic, e.damping, e.wall, e.contact, e.external, e.support, s.drift})
        row.push_back(value);
    auto add = [&](const std::array<double, 3>& v) { row.insert(row.end(), v.begin(), v.end()); };
    add(s.momentum);
    add(s.angular_momentum);
    add(s.reaction);
    for (std::size_t k = 0; s.walls && k < s.walls->size(); ++k)
        add(s.ranks ? s.wall_force[k] : s.walls->force(k));
    for (std::size_t k = 0; s.contacts && k < s.contacts->size(); ++k) add(s.contacts->force(k));
    for (std::size_t k = 0; s.supports && k < s.reactions.size(); ++k) add(s.reactions[k].force);
    for (std::int32_t n : s.probes) {
        const auto [u, v, v_new] = motion_of(n);
        add({u[0], u[1], u[2]});
        add({0.5 * (v[0] + v_new[0]), 0.5 * (v[1] + v_new[1]), 0.5 * (v[2] + v_new[2])});
        add({(v_new[0] - v[0]) / s.mean, (v_new[1] - v[1]) / s.mean, (v_new[2] - v[2]) / s.mean});
    }
    for (std::size_t k = 0; s.walls && k < s.walls->size(); ++k) row.push_back(s.walls->peaks.take(k));
    for (std::size_t k = 0; s.contacts && k < s.contacts->size(); ++k)
        row.push_back(s.contacts->peaks.take(k));
    if (s.rubs()) row.push_back(s.ranks ? s.friction : s.friction_work.at);
    if (s.viscosity) row.push_back(e.viscous);
    if (s.erosion) {
        row.push_back(e.eroded);
        row.push_back(static_cast<double>(s.eroded.elements));
    }
}

}  // namespace

namespace {

// A name as a column's heading: the separator and quotes would be read as the file's own.
std::string heading(std::string name) {
    for (char& c : name)
        if (c == ',' || c == '"' || c == ';') c = '_';
    return name;
}

}  // namespace

void begin_history(const Job& job, ExplicitState& s) {
    std::vector<std::string>& columns = s.history.columns;
    columns = {"time", "kinetic", "internal", "plastic", "damping",
               "wall", "contact", "external", "support", "drift"};
    add_vector(columns, "momentum");
    add_vector(columns, "angular_momentum");
    add_vector(columns, "reaction");
    if (s.walls)
        for (const RigidWall& wall : job.model.explicit_tables.walls)
            add_vector(columns, "wall_" + heading(wall.name));
    if (s.contacts)
        for (const ContactPair& pair : job.model.explicit_tables.contacts)
            add_vector(columns, "contact_" + heading(pair.name));
    if (s.supports)
        for (const BoundaryCondition& support : job.model.boundary_conditions)
            add_vector(columns, "support_" + heading(support.name));
    const Mesh& mesh = job.run.mesh;
    const NodeElements around = job.options.probes.empty() ? NodeElements{} : elements_of_nodes(mesh);
    for (const auto& place : job.options.probes) {
        const std::int32_t n = nearest_node(mesh, around, place);
        s.probes.push_back(s.mesh->number[n]);
        const std::string name = "node" + std::to_string(n + 1);
        for (const char* what : {"_u", "_v", "_a"}) add_vector(columns, name + what);
    }
    if (s.walls)
        for (const RigidWall& wall : job.model.explicit_tables.walls)
            columns.push_back("wall_" + heading(wall.name) + "_peak");
    if (s.contacts)
        for (const ContactPair& pair : job.model.explicit_tables.contacts)
            columns.push_back("contact_" + heading(pair.name) + "_peak");
    if (s.rubs()) columns.push_back("friction");
    if (s.viscosity) columns.push_back("viscous");
    if (s.erosion) columns.insert(columns.end(), {"eroded", "eroded_elements"});
    s.history.values.clear();
}

namespace {

// What the elements and inertia leave to what holds the nodes, 3 per node. Collective with others.
std::vector<double> residual_of(const Job& job, const ExplicitState& s) {
    std::vector<double> residual(job.mesh().dof_num());
    LineDoubles springs(s.u.size(), 0.0);
    s.springs.add_forces(s.u.data(), springs.data());  // counted support by support
    if (s.ranks) s.ranks->add_shared(springs.data(), 4);
    for (std::size_t d = 0; d < residual.size(); ++d) {
        const std::size_t k = 4 * (d / 3) + d % 3;
        residual[d] = s.R[k] - springs[k] - s.F[k] - s.F_contact[k];
        if (!s.bodies || !s.bodies->is_member(static_cast<std::int32_t>(d / 3)))
            residual[d] += s.mass[k] * (s.v_new[k] - s.v[k]) / s.mean;
    }
    return residual;
}

// What holds the body at its supports, inertia of what they move included, and node by node (dof_num, in the
// steps' order; empty: nothing is held or driven). driven: places, record after record.
std::vector<double> find_reactions(const Job& job, ExplicitState& s, std::span<const double> residual,
                                   std::span<const double> u,
                                   std::span<const std::vector<std::int32_t>> driven) {
    std::vector<Vec6> bodies;
    std::vector<RigidState> states;
    if (s.bodies)
        for (const ExplicitBody& body : s.bodies->bodies()) {
            bodies.push_back(body.held);
            states.push_back(body.state);
        }
    std::vector<double> nodal;
    if (!job.model.boundary_conditions.empty() || !driven.empty()) nodal.assign(u.size(), 0.0);
    // the bodies' pivots are those of the run
    s.reactions = support_reactions(job.model, job.mesh(), s.freedoms, residual, bodies, u, Places::displaced,
                                    states, nodal);
    for (const std::vector<std::int32_t>& places : driven)
        for (const std::int32_t place : places) {
            const std::size_t d = 3 * std::size_t(place / 4) + place % 4;
            nodal[d] = residual[d];
        }
    return nodal;
}

// Velocities and accelerations at t_n of the run's nodes, as the history tells them of its probes.
void take_motion(const ExplicitState& s, std::int32_t dofs, const auto& motion_of, Frame& frame) {
    frame.velocity.resize(dofs);
    frame.acceleration.resize(dofs);
    for (std::int32_t d = 0; d < dofs; ++d) {
        const auto [u, v, v_new] = motion_of(d / 3);
        const std::int32_t c = d % 3;
        frame.velocity[d] = static_cast<float>(0.5 * (v[c] + v_new[c]));
        frame.acceleration[d] = static_cast<float>((v_new[c] - v[c]) / s.mean);
    }
}

}  // namespace

namespace {

// Hexahedra that average the volume change once they have yielded are told by their points.
std::function<HexahedronForm(std::int32_t e)> form_in_force(const Job& job, const ExplicitState& s) {
    const bool once_yielded = job.options.mean_dilatation && !job.options.hexahedra;
    const HexahedronForm form = once_yielded ? HexahedronForm::full : job.hexahedra();
    const std::size_t points = element_type(job.mesh().element_type).points;
    if (!once_yielded || s.plastic_strain.empty()) return [form](std::int32_t) { return form; };
    return [&s, form, points](std::int32_t e) {
        const auto first = s.plastic_strain.begin() + std::ptrdiff_t(e * points);
        const bool yielded =
            std::any_of(first, first + std::ptrdiff_t(points), [](double a) { return a > 0; });
        return yielded ? HexahedronForm::mean_dilatation : form;
    };
}

// Of the frame added last, whose points' stresses are in s.points.
void report_sections(Job& job, const ExplicitState& s, std::span<const double> u) {
    if (job.options.sections.empty()) return;
    const std::size_t dofs = u.size();
    std::vector<double> internal(dofs), applied(dofs), inertia(dofs);
    LineDoubles springs(s.u.size(), 0.0);
    s.springs.add_forces(s.u.data(), springs.data());
    for (std::size_t d = 0; d < dofs; ++d) {
        const std::size_t k = 4 * (d / 3) + d % 3;
        internal[d] = s.R[k] - springs[k];
        applied[d] = s.F[k] + s.F_contact[k];
        if (s.bodies && s.bodies->is_member(static_cast<std::int32_t>(d / 3))) continue;
        inertia[d] = s.mass[k] * (s.v_new[k] - s.v[k]) / s.mean + 0.5 * s.damping[k] * (s.v_new[k] + s.v[k]);
    }
    const std::vector<char> held = held_nodes(job, s.freedoms);
    add_sections(job,
                 {.mesh = job.mesh(),
                  .u = u,
                  .element_forces = forces_of_stresses(job.mesh(), u, s.points.stress, form_in_force(job, s)),
                  .internal = internal,
                  .applied = applied,
                  .inertia = inertia,
                  .held = held,
                  .internal_everywhere = true});
}

}  // namespace

namespace {

void tell_course(Job& job, const ExplicitState& s) {
    job.progress.set_course(
        formatted("t = %.4g of %.4g s, kinetic %.4g J, internal %.4g J, plastic %.4g J, drift %.1e", s.time(),
                  s.adaptive.on ? s.adaptive.end : static_cast<double>(s.time_num) * s.d_time,
                  s.energies.kinetic, s.energies.internal, s.energies.plastic, s.drift));
}

// The frame and the row of a run of several processes, on the first one; the others keep its time. So does
// the first one where the stresses stay with those that have them.
void store_gathered(Job& job, ExplicitState& s) {
    add_up(s);
    balance(s);
    const GatheredFrame all = s.ranks->gather(job, s, residual_of(job, s));
    const auto frame = std::make_shared<Frame>();
    frame->n_freq = s.time();
    job.run.results.push_back(frame);
    if (!s.ranks->first()) return;
    // supports and their places are in the order of the whole run's steps
    const StepMesh* const here = std::exchange(job.steps, s.mesh.get());
    const std::vector<std::int32_t>& of_run = job.steps->of_run;
    std::vector<double> residual(all.residual.size()), u(residual.size());
    for (std::size_t n = 0; n < of_run.size(); ++n) {
        std::copy_n(&all.residual[3 * std::size_t(of_run[n])], 3, &residual[3 * n]);
        std::copy_n(&all.u[3 * std::size_t(of_run[n])], 3, &u[3 * n]);
    }
    std::vector<double> reaction = of_run_nodes(job, find_reactions(job, s, residual, u, s.piece->driven));
    job.steps = here;
    const auto motion_of = [&](std::int32_t n) {
        const std::size_t at = 3 * n;
        return NodeMotion{&all.u[at], &all.v[at], &all.v_new[at]};
    };
    add_row(s, [&](std::int32_t n) { return motion_of(of_run[n]); });
    tell_course(job, s);
    if (all.node_stress.empty()) return;  // on disk, from every process its own
    frame->reaction = std::move(reaction);
    frame->mode_vec = all.u;
    frame->node_stress = all.node_stress;
    take_motion(s, static_cast<std::int32_t>(all.u.size()), motion_of, *frame);
    frame->element_stress = all.element_stress;
    frame->element_plastic = all.element_plastic;
    frame->removed = all.removed;
}

}  // namespace

void store_frame(Job& job, ExplicitState& s) {
    if (!s.velocities_known) find_velocities(job, s);
    sum_nodes(s);
    sum_energies(s);
    if (s.ranks) return store_gathered(job, s);
    balance(s);
    std::vector<double> u(job.mesh().dof_num());
    for (std::size_t d = 0; d < u.size(); ++d) u[d] = s.u[4 * (d / 3) + d % 3];
    std::vector<std::vector<std::int32_t>> driven;
    for (const DrivenDofs& record : s.driven) driven.push_back(record.places);
    const std::vector<double> reaction = find_reactions(job, s, residual_of(job, s), u, driven);
    const auto motion_of = [&](std::int32_t n) {
        const std::size_t at = 4 * n;
        return NodeMotion{&s.u[at], &s.v[at], &s.v_new[at]};
    };
    add_row(s, motion_of);
    tell_course(job, s);
    const auto frame = std::make_shared<Frame>(job.mesh().dof_num());
    frame->n_freq = s.time();
    if (s.erosion) frame->removed = s.erosion->removed(s);
    std::vector<double> values(frame->node_stress.size());
    s.blocks->copy_stresses(s.points.stress, s.plastic_strain);
    logarithmic_strains(job.mesh(), u, s.team, s.points);
    SilentProgress silent;  // a frame is whole, whatever is asked meanwhile
    const NodeElements& all = s.freedoms.node_elements;
    mean_stress_strain(job.mesh(), s.erosion ? s.erosion->node_elements(all) : all, s.points,
                       s.plastic_strain, s.team, values, silent);
    frame->mode_vec = of_run_nodes(job, u);
    frame->node_stress = of_run_nodes(job, values);
    frame->reaction = of_run_nodes(job, reaction);
    take_motion(
        s, job.mesh().dof_num(), [&](std::int32_t n) { return motion_of(job.steps->number[n]); }, *frame);
    const int points = element_type(job.mesh().element_type).points;
    frame->element_stress = point_means(s.points.stress, points, 6);
    frame->element_plastic = point_means(s.plastic_strain, points, 1);
    job.run.results.push_back(frame);
    report_sections(job, s, u);
}

}  // namespace kestralum
