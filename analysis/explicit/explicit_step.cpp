#include <algorithm>
#include <cmath>

#include "analysis/explicit/explicit_state.h"
#include "analysis/explicit/explicit_sweep.h"
#include "elements/element_type.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr std::int64_t steps_per_check = 100;

// Nodes with axes of their own and tied ones have no factors in the sweep; walls and contact press on them
// all the same, only friction does not change their velocities.
ContactArrays contact_arrays(ExplicitState& s, bool rubbing = false) {
    const LineDoubles &mass = s.contact_mass.empty() ? s.mass : s.contact_mass,
                      &b = s.contact_b.empty() || rubbing ? s.b : s.contact_b;
    return {s.x.data(), s.v.data(), mass.data(), b.data(), s.F_contact.data()};
}

std::string velocity_without_value(const std::string& record, const TimeExpression& velocity, double value,
                                   double time) {
    return formatted("velocity input %s: its velocity '%s' is %g at time %.6g", record.c_str(),
                     velocity.text.c_str(), value, time);
}

// Prescribed velocities at t_n + Δt/2, and the power of the forces that see to them.
std::array<double, 2> drive(const Job& job, ExplicitState& s) {
    std::array<double, 2> power{};
    const double middle = s.middle_time();
    for (const DrivenDofs& driven : s.driven) {
        const double velocity = driven.velocity.at(middle, job.model.parameters);
        if (!std::isfinite(velocity)) {
            s.trouble = velocity_without_value(driven.record, driven.velocity, velocity, middle);
            continue;
        }
        for (std::int32_t place : driven.places) {
            const std::size_t k = place;
            s.v_new[k] = velocity;
            if (place / 4 >= s.owned) continue;
            const double force = s.mass[k] * (velocity - s.v[k]) / s.mean + s.R[k] - s.F[k] - s.F_contact[k];
            power[0] += force * s.v[k];
            power[1] += force * velocity;
        }
    }
    return power;
}

// e: of the run.
std::string part_of(const Job& job, std::int32_t e) {
    return job.model.parts[job.run.mesh.p_ele_part_id[e]].name;
}

// Element e of this process in the numbers of the run.
std::int32_t run_element(const ExplicitState& s, std::int32_t e) {
    return s.piece && e >= 0 ? s.piece->elements[e] : e;
}

// Every element with a node whose displacement is not finite, at its first such node.
void list_lost_elements(Job& job, const ExplicitState& s) {
    const Mesh& mesh = job.mesh();
    const std::size_t per_element = mesh.node_per_element();
    for (std::int32_t e = 0; e < mesh.element_num(); ++e)
        for (std::size_t i = 0; i < per_element; ++i) {
            const std::size_t n =
                node_index(mesh.connectivity[static_cast<std::size_t>(e) * per_element + i]);
            const double* u = s.u.data() + 4 * n;
            if (std::isfinite(u[0]) && std::isfinite(u[1]) && std::isfinite(u[2])) continue;
            const double* X = mesh.coordinates.data() + 3 * n;
            const std::int32_t part = mesh.p_ele_part_id[e];
            job.progress.print("Ele=%d,%zu; part=%d[%s], coord:%.3e, %.3e, %.3e\n", run_element(s, e), i,
                               part, job.model.parts[part].name.c_str(), X[0], X[1], X[2]);
            job.progress.print("         :%.3e,%.3e,%.3e\n", u[0], u[1], u[2]);
            break;
        }
}

void stop(Job& job, ExplicitState& s, std::string why) {
    s.diverged = true;
    job.progress.notice("%s", why.c_str());
    job.fail(RunStatus::failed, std::move(why));
}

// What ends the run; with others it goes on until all know of it. True where it has ended.
bool ends(Job& job, ExplicitState& s, StepFault fault) {
    if (!s.ranks)
        stop(job, s, std::move(fault.text));
    else if (s.fault.step < 0)
        s.fault = std::move(fault);
    return s.diverged;
}

// Whether no process has met a fault: of the step before, or of this one too. Notes where one is asked to
// stop.
bool all_go_on(Job& job, ExplicitState& s, bool at_once) {
    constexpr int faulty = 1, asked = 2;
    const int here = (s.fault.step >= 0 ? faulty : 0) | (job.progress.cancelled() ? asked : 0);
    const int all = s.ranks->flags(here, at_once);
    s.asked_to_stop = (all & asked) != 0;
    if ((all & faulty) == 0) return true;
    s.ranks->share_first(s.fault);
    s.step = s.fault.step;
    stop(job, s, s.fault.text);
    return false;
}

// The stable step of the shapes in force, looked at now and then and said once.
void check_shapes(Job& job, ExplicitState& s) {
    if (s.adaptive.on || s.step_warned || s.step < s.next_check) return;
    s.next_check = s.step + steps_per_check;
    const double share = viscous_share(s);
    StableStep worst = s.bound->worst_above(s.x.data(), s.d_time / share, s.team);
    if (s.ranks) worst = s.ranks->smallest({worst.step, run_element(s, worst.element)});
    if (worst.element < 0) return;
    worst.step *= share;
    s.step_warned = true;
    std::string line = formatted(
        "step %ld: d_time = %.3e s passes the stable step of %.3e s of element %d, part %s, in its present "
        "shape",
        s.step, s.d_time, worst.step, worst.element + 1, part_of(job, worst.element).c_str());
    job.progress.notice("%s", line.c_str());
    job.note(std::move(line));
}

// Nodes that supports move or that have axes of their own.
void move_supports(ExplicitState& s, std::array<double, 2>& driving, std::array<double, 2>& damping) {
    Halves resisted{};
    if (!s.supports->advance(s.next_time(), node_arrays(s), driving, resisted))
        s.trouble = s.supports->trouble();
    damping[0] += 0.5 * s.before * resisted[0];
    damping[1] += 0.5 * s.after * resisted[1];
}

// The bodies' part of the velocities at t_n + Δt/2, after friction has said what it takes.
void advance_bodies(const Job& job, ExplicitState& s, std::array<double, 2>& driving,
                    std::array<double, 2>& loads) {
    const double middle = s.middle_time();
    for (DrivenMembers& record : s.driven_members) {
        const double velocity = record.given.at(middle, job.model.parameters);
        if (std::isfinite(velocity))
            record.velocity = velocity;
        else
            s.trouble = velocity_without_value(record.record, record.given, velocity, middle);
    }
    for (const ExplicitBody& body : s.bodies->bodies())
        for (std::int32_t n : body.geometry.members)
            for (std::size_t c = 0; c < 3; ++c) {
                const std::size_t k = 4 * n + c;
                s.acting[k] = s.F[k] + s.F_contact[k] - s.R[k];
            }
    std::array<double, 2> elsewhere{};  // counted by the first process
    const bool counts = s.counts_bodies();
    s.bodies->advance({s.u.data(), s.acting.data(), s.v_new.data()}, s.driven_members, {s.after, s.mean},
                      counts ? driving : elsewhere, counts ? loads : elsewhere);
}

}  // namespace

NodeArrays node_arrays(ExplicitState& s) {
    return {s.u.data(), s.du.data(),        s.x.data(),    s.X.data(),     s.v.data(),
            s.F.data(), s.F_contact.data(), s.mass.data(), s.v_new.data(), s.R.data()};
}

void set_step(ExplicitState& s, double before, double after) {
    const double former = s.mean;
    s.before = before;
    s.after = after;
    s.mean = 0.5 * (before + after);
    if (s.supports) s.supports->set_step(after, s.mean, s.mass.data());
    if (s.walls) s.walls->set_step(after);
    if (s.contacts) s.contacts->set_step(before, after);
    if (s.mean == former) return;
    for (std::size_t k = 0; k < s.b.size(); ++k) {
        if (s.b[k] == 0) continue;
        const double per_step = s.mass[k] / s.mean, half = 0.5 * s.damping[k];
        s.a[k] = (per_step - half) / (per_step + half);
        s.b[k] = 1 / (per_step + half);
    }
    if (s.contact_b.empty()) return;
    s.contact_b = s.b;
    for (const std::int32_t n : s.supports->special_nodes())
        for (std::size_t c = 0; c < 3; ++c) s.contact_b[4 * n + c] = s.mean / s.contact_mass[4 * n + c];
}

double viscous_share(const ExplicitState& s) {
    if (!s.viscosity) return 1;
    const double share = s.viscosity->share_now(*s.blocks);
    return s.ranks ? -s.ranks->largest(-share) : share;
}

namespace {

void push_contacts(ExplicitState& s, double time) {
    const ContactArrays arrays = contact_arrays(s);
    s.contacts->push(s.mirror ? s.mirror->take(arrays) : arrays, time, s.team);
    if (s.mirror) s.mirror->give(arrays.F);
}

}  // namespace

bool find_forces(ExplicitState& s) {
    const double time = s.time();
    if (s.heat && !s.heat->set(time, s.team, *s.blocks)) s.trouble = s.heat->trouble();
    if (s.erosion && s.step > 0) s.erosion->erode(s);
    if (s.viscosity) {
        s.viscosity->follow(s.step, s.x.data(), *s.bound, s.team, *s.blocks, s.ranks);
        s.blocks->set_step(s.step > 0 ? s.before : 0);
    }
    const bool sound = s.blocks->evaluate(s.x.data(), s.du.data(), s.R.data(), s.team);
    s.springs.add_forces(s.u.data(), s.R.data());
    if (s.loads && !s.loads->set(time, s.u.data(), s.F.data(), s.ranks)) s.trouble = s.loads->trouble();
    if (s.bodies && !s.bodies->set_time(time)) s.trouble = s.bodies->trouble();
    for (std::int32_t n : s.contact_nodes)
        std::fill_n(s.F_contact.begin() + 4 * static_cast<std::ptrdiff_t>(n), 3, 0.0);
    if (s.contacts) push_contacts(s, time);
    if (s.walls && !s.walls->push(contact_arrays(s), time)) s.trouble = s.walls->trouble();
    if (s.supports) s.supports->gather(node_arrays(s));
    if (s.ranks) s.ranks->add_shared(s.R.data(), 4);
    if (s.supports) s.supports->settle(node_arrays(s));
    return sound && s.trouble.empty();
}

namespace {

constexpr std::size_t longest_course = 12288;  // forces that wait for their sum

void note_wall_forces(ExplicitState& s) {
    for (std::size_t k = 0; s.walls && k < s.walls->size(); ++k) {
        const Vec3 force = s.walls->force(k);
        if (s.ranks)
            s.wall_course.insert(s.wall_course.end(), force.begin(), force.end());
        else
            s.walls->peaks.note(k, force);
    }
    if (s.wall_course.size() >= longest_course) sum_wall_course(s);
}

}  // namespace

void sum_wall_course(ExplicitState& s) {
    if (s.wall_course.empty()) return;
    s.ranks->sum(s.wall_course);
    for (std::size_t k = 0; 3 * k < s.wall_course.size(); ++k)
        s.walls->peaks.note(k % s.walls->size(), triple(s.wall_course, k));
    s.wall_course.clear();
}

void find_velocities(const Job& job, ExplicitState& s) {
    // nothing was done before the start
    const bool start = s.step == 0;
    auto book_work = [&](Work& work, std::array<double, 2> done) {
        work.add(start ? 0.0 : done[0], done[1]);
    };
    auto book = [&](Work& work, std::array<double, 2> power) {
        book_work(work, {0.5 * s.before * power[0], 0.5 * s.after * power[1]});
    };
    std::array<double, 2> driving{}, loads{}, damping = update_velocities(s);
    if (!s.driven.empty()) driving = drive(job, s);
    if (s.supports) move_supports(s, driving, damping);
    if (s.walls) s.walls->rub(contact_arrays(s, true), s.v_new.data());
    if (s.bodies) {
        advance_bodies(job, s, driving, loads);
        book(s.rigid_work, loads);
        const double counts = s.counts_bodies() ? 0.5 : 0;
        damping[0] += counts * s.before * s.bodies->dashpot_power()[0];
        damping[1] += counts * s.after * s.bodies->dashpot_power()[1];
    }
    book_work(s.damping_work, damping);
    book(s.support_work, driving);
    if (s.supports) s.supports->follow(s.v_new.data());
    if (s.loads) {
        const double* F = s.F.data();
        book(s.load_work,
             {s.loads->power(F, s.v.data(), s.owned), s.loads->power(F, s.v_new.data(), s.owned)});
    }
    std::array<double, 2> friction{};
    if (s.walls) {
        book(s.wall_work, s.walls->power(s.v.data(), s.v_new.data()));
        const auto power = s.walls->friction_power(s.v.data(), s.v_new.data());
        friction = {0.5 * s.before * power[0], 0.5 * s.after * power[1]};
    }
    if (s.contacts) {
        const double *v = s.mirror ? s.mirror->velocities() : s.v.data(),
                     *v_new = s.mirror ? s.mirror->follow(s.v_new.data()) : s.v_new.data();
        const double counts = s.counts_all() ? 1 : 0;
        const auto work = s.contacts->work(v, v_new), rubbed = s.contacts->friction_work(v, v_new);
        book_work(s.contact_work, {counts * work[0], counts * work[1]});
        for (std::size_t k = 0; k < 2; ++k) friction[k] += counts * rubbed[k];
    }
    book_work(s.friction_work, friction);
    note_wall_forces(s);
    for (std::size_t k = 0; s.contacts && k < s.contacts->size(); ++k)
        s.contacts->peaks.note(k, s.contacts->force(k));
    s.velocities_known = true;
}

void explicit_step(Job& job, ExplicitState& s) {
    const std::int64_t step = s.step + 1;
    job.progress.print("########## Time: %.3e[s]  %ld/%ld##########\n", s.next_time(), step, s.time_num);
    if (!s.velocities_known) find_velocities(job, s);
    s.velocities_known = false;
    if (!s.trouble.empty() && ends(job, s, {step, 0, -1, formatted("step %ld: ", step) + s.trouble})) return;
    const bool finite = move_nodes(s);
    if (s.bodies) {
        s.bodies->arrive(s.u, s.du, s.x, s.X);
        s.bodies->print_velocities(job.progress);
    }
    if (s.supports) s.supports->arrive(node_arrays(s));
    s.step = step;
    if (s.adaptive.on && (finite || s.ranks))
        if (const std::string why = adapt_step(job, s); !why.empty()) return stop(job, s, why);
    const std::int64_t eroded = s.erosion ? s.erosion->count() : 0;
    const bool sound = find_forces(s);
    if (s.erosion && !s.ranks && s.erosion->count() > eroded)
        job.progress.print("Eroded elements=%ld of %d\n", s.erosion->count(), job.mesh().element_num());
    if (!finite) {
        if (s.fault.step < 0) list_lost_elements(job, s);
        if (ends(job, s,
                 {step, 1, -1,
                  formatted("the run diverges in step %ld: a displacement is not a finite number", step)}))
            return;
    } else if (!sound) {
        const std::int32_t e = run_element(s, s.blocks->first_inverted());
        std::string text = e >= 0 ? formatted(
                                        "the run diverges in step %ld: element %d of part %s has a point "
                                        "whose volume is no longer positive",
                                        step, e + 1, part_of(job, e).c_str())
                                  : formatted("step %ld: ", step) + s.trouble;
        if (ends(job, s, {step, e >= 0 ? 2 : 3, e, std::move(text)})) return;
    }
    const bool output = s.adaptive.on ? s.adaptive.at_output : step % s.output_frequency == 0,
               stored = output && job.run.mode_num() < s.out_time_num;
    if (s.ranks && !all_go_on(job, s, stored || s.adaptive.on || s.ended())) return;
    if (stored) store_frame(job, s);
    check_shapes(job, s);
}

}  // namespace kestralum
