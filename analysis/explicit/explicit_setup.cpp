#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "analysis/explicit/explicit_setup.h"
#include "model/format.h"
#include "model/free_faces.h"
#include "model/mesh_sets.h"
#include "solver/memory_limits.h"
#include "system/load_set.h"

namespace kestralum {

namespace {

constexpr std::int32_t smallest_team = 4000;  // nodes
constexpr double end_tolerance =
    1.0000001;  // keeps the last step of an end_time that is a multiple of d_time

// Materials and settings that explicit stepping cannot do without.
bool check_input(Job& job) {
    if (!check_analysable(job) || !check_case(job)) return false;
    const AnalysisControl& c = job.model.control;
    const auto refuse = [&](std::string line) { return job.fail(RunStatus::bad_input, std::move(line)); };
    for (std::int32_t p : job.model.mesh.p_ele_part_id) {
        const Material& m = job.model.materials[job.model.parts[p].material_id];
        if (!(m.density > 0 && m.young > 0 && m.poisson > -1 && m.poisson < 0.5 && std::isfinite(m.density) &&
              std::isfinite(m.young)))
            return refuse(
                formatted("material %s: the explicit analysis wants a density and E above 0 and Poisson's "
                          "ratio between -1 and 0.5",
                          m.name.c_str()));
        if (const std::string wrong = wrong_plastic_constant(m); c.plastic && !wrong.empty())
            return refuse(wrong);
    }
    if (!(c.d_time >= 0) || !std::isfinite(c.d_time))
        return refuse(formatted("d_time = %g: the time step must not be negative", c.d_time));
    if (!(c.end_time >= 0) || !std::isfinite(c.end_time))
        return refuse(formatted("end_time = %g: the end time must not be negative", c.end_time));
    if (c.auto_step && !(c.step_share > 0 && c.step_share <= 1))
        return refuse(formatted("step_share = %g: above 0 and at most 1 is expected", c.step_share));
    for (const auto& [name, value] : {std::pair{"linear_viscosity", c.linear_viscosity},
                                      std::pair{"quadratic_viscosity", c.quadratic_viscosity}})
        if (!(value >= 0) || !std::isfinite(value))
            return refuse(formatted("%s = %g: the viscosity must not be negative", name, value));
    if (!(c.c_alfa >= 0) || !std::isfinite(c.c_alfa))
        return refuse(formatted("C_alfa = %g: the damping must not be negative", c.c_alfa));
    return true;
}

bool has_viscosity(const Job& job) {
    return job.model.control.linear_viscosity > 0 || job.model.control.quadratic_viscosity > 0;
}

// The surface for contact, when it is on; what keeps a pair from acting is said.
void extract_surface(Job& job, ExplicitState& s) {
    const auto& pairs = job.model.explicit_tables.contacts;
    if (!job.model.control.element_contact) {
        if (!pairs.empty()) remark(job, "Element_contact is off: the pairs of ELEMENT_CONTACT do not act");
        return;
    }
    std::vector<SurfaceTriangle> surface = surface_triangles(job.mesh());
    s.contact_nodes = surface_nodes(surface, job.mesh().node_num());
    job.progress.print("Nnode_s=%zu\n", s.contact_nodes.size());
    job.progress.print("Ntri_s=%zu\n", surface.size());
    s.contacts.emplace(pairs, job.model.parts, job.mesh(), std::move(surface));
    for (std::size_t k = 0; k < pairs.size(); ++k) {
        const auto missing = std::ranges::find_if(pairs[k].part_name, [&](const std::string& name) {
            for (std::size_t p = 0; p < job.model.parts.size(); ++p)
                if (is_of_part(job.model.parts, p, name)) return false;
            return true;
        });
        if (missing != pairs[k].part_name.end())
            remark(job, "contact " + pairs[k].name + ": this model has no part " + *missing);
        else if (!s.contacts->can_act(k))
            remark(job, "contact " + pairs[k].name + ": a part of it has no surface in this model");
        if (const std::int32_t common = s.contacts->common_nodes(k); common > 0)
            remark(job, formatted("contact %s: parts %s and %s have %d nodes in common, merged "
                                  "where they touched: nothing slides or parts there",
                                  pairs[k].name.c_str(), pairs[k].part_name[0].c_str(),
                                  pairs[k].part_name[1].c_str(), common));
    }
    if (!pairs.empty()) return;
    remark(job, "Element_contact is on, but ELEMENT_CONTACT names no pair: nothing meets");
    s.contacts.reset();
    s.contact_nodes.clear();
}

// The step in force: given, or 0.9 of the stable one.
bool choose_step(Job& job, const SetUp& set_up, ExplicitState& s) {
    if (!s.bound) bound_steps(job, set_up, s);
    const StableStep stable = s.bound->undeformed();
    s.stable_step = stable.step;
    if (!(stable.step > 0) || !std::isfinite(stable.step))
        return job.fail(RunStatus::failed, "no stable time step can be found for this mesh");
    const auto c = element_centre(job.mesh(), stable.element);
    job.progress.print("Stable time step=%.3e[s], element %d at (%.6g, %.6g, %.6g)\n", stable.step,
                       stable.element + 1, c[0], c[1], c[2]);
    if (const double rate = s.bodies ? s.bodies->spring_rate() : 0; rate > 0) {
        s.stable_step = 2 / std::sqrt(4 / (stable.step * stable.step) + rate);
        s.added_rate = rate;
        job.progress.print("Stable time step=%.3e[s] with the springs between rigid elements\n",
                           s.stable_step);
    }
    const bool gathered = !set_up.own_mass.empty();
    const double spread = s.freedoms.constraints.map.spread();
    if (const double rate = s.springs.rate(gathered ? set_up.own_mass : set_up.lumped);
        rate > 0 || spread > 1) {
        s.stable_step = 2 / std::sqrt(4 / (s.stable_step * s.stable_step) + rate) / spread;
        s.added_rate += rate;
        s.step_factor = 1 / spread;
        job.progress.print("Stable time step=%.3e[s] with the springs of supports and the ties\n",
                           s.stable_step);
    }
    if (has_viscosity(job)) {
        s.viscosity.emplace(job.model, job.mesh(), s.freedoms.rigid.elements_inside(job.mesh()));
        s.stable_step *= s.viscosity->share_at_rest();
        s.step_factor *= s.viscosity->share_at_rest();
        job.progress.print("Stable time step=%.3e[s] with the bulk viscosity\n", s.stable_step);
    }
    if (const double rate = s.bodies ? s.bodies->dashpot_rate() : 0; rate > 0) {
        s.step_limit = 1 / rate;
        s.stable_step = std::min(s.stable_step, s.step_limit);
        job.progress.print("Stable time step=%.3e[s] with the dashpots between rigid elements\n",
                           s.stable_step);
    }
    if (job.model.control.auto_step) return begin_adaptive(job, s);
    s.d_time = job.model.control.d_time > 0 ? job.model.control.d_time : 0.9 * s.stable_step;
    if (!(job.model.control.d_time > 0))
        remark(job, formatted("d_time is not given: %.6e s is taken, 0.9 of the stable step", s.d_time));
    return true;
}

// Steps and frames of a given step.
bool count_given_steps(Job& job, ExplicitState& s) {
    const AnalysisControl& control = job.model.control;
    s.output_frequency = control.output_frequency;
    if (s.output_frequency < 1) {
        s.output_frequency = 1;
        remark(job, "output_frequency is not given or below 1: every step is stored");
    }
    const double steps = control.end_time * end_tolerance / s.d_time;
    const double frames =
        std::floor(control.end_time * end_tolerance / (s.d_time * static_cast<double>(s.output_frequency))) +
        1.0;
    if (!(steps < 9e18))
        return job.fail(RunStatus::bad_input, formatted("end_time / d_time = %.3e: too many steps", steps));
    s.time_num = 1 + static_cast<std::int64_t>(steps);
    s.out_time_num = static_cast<std::int64_t>(frames);
    return true;
}

// Of a frame: reaction, velocity, acceleration per degree of freedom; an element's means.
constexpr double motion_bytes = 8 + 4 + 4, mean_bytes = (6 + 1) * 4;

bool count_steps(Job& job, ExplicitState& s) {
    if (!s.adaptive.on && !count_given_steps(job, s)) return false;
    job.progress.print("time_num = %ld\n", s.time_num);
    job.progress.print("out_time_num = %ld\n", s.out_time_num);
    const auto frames = static_cast<double>(s.out_time_num);
    const double dofs = job.mesh().dof_num();
    const double frame =
        dofs * ((1 + stress_groups) * 8 + motion_bytes) + job.mesh().element_num() * mean_bytes;
    const double bytes = frames * frame + static_cast<double>(s.blocks->bytes()) + dofs / 3 * 4 * 13 * 8;
    job.progress.print("Memory Size = %8.3f[Mbyte]\n", bytes / 1000000);
    const double most = machine_megabytes(), held = job.options.frames_on_disk ? 1 : frames;
    const double needed = bytes - (frames - held) * frame;
    if (frames > std::numeric_limits<std::int32_t>::max() || 1e-6 * needed > 0.9 * most)
        return job.fail(RunStatus::bad_input,
                        formatted("%ld frames need %.0f MB, this machine has %.0f MB: raise output_frequency",
                                  s.out_time_num, needed / 1e6, most));
    return true;
}

// Tables may be an earlier model's, whose sets this one does not have.
bool has_sets(Job& job) {
    const auto has = [&](const char* kind, const auto& records) {
        for (const auto& record : records)
            if (!record.set_name.empty() && !find_set(job.model.mesh, record.set_name))
                return job.fail(RunStatus::bad_input, std::string(kind) + " " + record.name +
                                                          ": this model has no set " + record.set_name);
        return true;
    };
    const ExplicitTables& tables = job.model.explicit_tables;
    return has("wall", tables.walls) && has("contact", tables.contacts);
}

bool yields(const Job& job) {
    return job.model.control.plastic && std::ranges::any_of(job.model.materials, has_yield_stress);
}

void set_erosion(Job& job, const Mesh& mesh, std::span<const char> rigid, ExplicitState& s) {
    for (const Material& m : job.model.materials)
        if (m.erode > 0 && !(job.model.control.plastic && has_yield_stress(m)))
            remark(job, "material " + m.name + ": erode= counts plastic strain, and it has none: " +
                            (job.model.control.plastic ? "its yield stress is 0" : "Plastic is off"));
    s.erosion.emplace(job.model, mesh, rigid);
    s.blocks->allow_removal();
    job.run.erodes = true;
}

void report_closed(Job& job, const ExplicitState& s) {
    const auto say_where = [&](std::int64_t touching, const char* what) {
        if (touching > 0)
            remark(job, formatted("%ld nodes lie behind %s at the start and are pushed out", touching, what));
    };
    if (s.walls) {
        double touching[] = {static_cast<double>(s.walls->touching())};
        if (s.ranks) s.ranks->sum(touching);
        say_where(static_cast<std::int64_t>(touching[0]), "a wall");
    }
    if (s.contacts) say_where(s.contacts->touching(), "the surface of a contact pair");
}

}  // namespace

void remark(Job& job, std::string line) {
    job.progress.notice("%s", line.c_str());
    job.note(std::move(line));
}

void bound_steps(const Job& job, const SetUp& set_up, ExplicitState& s) {
    // a surface that is touched wants the step of its own size: the springs of contact are as stiff as the
    // step lets them
    const bool touched = s.contacts || !job.model.explicit_tables.walls.empty();
    const std::vector<char> rigid =
        touched ? std::vector<char>() : s.freedoms.rigid.elements_inside(job.mesh());
    s.bound = std::make_unique<StepBound>(job.mesh(), job.model.parts, job.model.materials,
                                          set_up.mass_factor, s.threads, rigid);
}

bool prepare_explicit(Job& job, SetUp& set_up, ExplicitState& s) {
    s.start = std::chrono::steady_clock::now();
    if (!check_input(job) || !has_sets(job) || !order_run_mesh(job, Renumbering::along_longest, s.freedoms))
        return false;
    s.mesh = renumbered(job.run.mesh, order_of_use(job.run.mesh));
    job.steps = s.mesh.get();
    if (!find_bodies(job, s.freedoms) || !check_turning_bodies(job, s.freedoms.rigid)) return false;
    s.threads = job.threads();
    s.team = job.mesh().node_num() < smallest_team ? 1 : s.threads;
    job.clock.begin("assemble");
    extract_surface(job, s);
    job.progress.print("diag_num=%d\n", s.freedoms.diag_num);
    count_freedoms(job, s.freedoms);
    if (!set_inertia(job, set_up, s)) return false;
    job.clock.begin("step size");
    if (!choose_step(job, set_up, s)) return false;
    set_up.diagonals = {};
    return true;
}

bool make_explicit(Job& job, SetUp& set_up, ExplicitState& s) {
    const Mesh& mesh = s.piece ? s.piece->steps.mesh : job.mesh();
    std::vector<char> rigid = s.freedoms.rigid.elements_inside(job.mesh());
    if (s.piece && !rigid.empty()) {
        const std::vector<char> of_all = std::exchange(rigid, {});
        for (const std::int32_t e : s.piece->elements) rigid.push_back(of_all[e]);
    }
    const bool once_yielded = job.options.mean_dilatation && !job.options.hexahedra;
    s.blocks.emplace(mesh, job.model.parts, job.model.materials,
                     BlockOptions{yields(job), once_yielded, 8, rigid,
                                  once_yielded ? HexahedronForm::full : job.hexahedra(), s.heat.has_value()});
    if (some_erode(job.model)) set_erosion(job, mesh, rigid, s);
    if (!count_steps(job, s)) return false;
    s.before = s.after = s.mean = s.d_time;
    if (!set_motions(job, set_up, s)) return false;
    set_up = {};
    job.clock.end();
    begin_history(job, s);
    if (s.piece) keep_piece(job, s);
    begin_sweep(s);
    return true;
}

bool find_first_forces(Job& job, ExplicitState& s) {
    const bool found = find_forces(s);
    if (!s.trouble.empty()) return job.fail(RunStatus::bad_input, "at the start: " + s.trouble);
    if (!found)
        return job.fail(RunStatus::failed, "the forces of the start cannot be found: an element is inverted");
    return true;
}

bool store_start(Job& job, ExplicitState& s) {
    report_closed(job, s);
    store_frame(job, s);
    if (!s.trouble.empty()) return job.fail(RunStatus::bad_input, "step 1: " + s.trouble);
    return job.goes_on();
}

bool set_up_explicit(Job& job, ExplicitState& s) {
    SetUp set_up;
    return prepare_explicit(job, set_up, s) && make_explicit(job, set_up, s) && find_first_forces(job, s) &&
           store_start(job, s);
}

}  // namespace kestralum
