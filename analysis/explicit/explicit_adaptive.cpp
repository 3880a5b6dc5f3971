#include "analysis/explicit/explicit_adaptive.h"

#include <algorithm>
#include <cmath>

#include "analysis/explicit/explicit_setup.h"
#include "analysis/explicit/explicit_state.h"
#include "model/format.h"

namespace kestralum {

namespace {

constexpr double rounding = 1e-7;           // of an interval
constexpr double closing = 0.02;            // of an element's size that nodes may come closer unseen
constexpr std::int64_t longest_look = 100;  // steps
constexpr double worth_raising = 1.05;
constexpr double least_share = 1e-5;  // of the first step: what is below leads nowhere

// Equal steps of at most `limit` to the next output; the last one is the end of the run.
void plan(ExplicitState& s, double& after) {
    AdaptiveStep& a = s.adaptive;
    const bool last = a.outputs + 2 >= s.out_time_num;
    const double target = last ? a.end : static_cast<double>(a.outputs + 1) * a.interval,
                 rest = target - a.now;
    a.left = std::max<std::int64_t>(1, static_cast<std::int64_t>(std::ceil(rest / a.limit - rounding)));
    after = rest / static_cast<double>(a.left);
    a.target = target;
    s.time_num =
        s.step + a.left + 1 + static_cast<std::int64_t>(std::ceil((a.end - target) / after - rounding));
}

void find_next(AdaptiveStep& a, double after) {
    a.next = a.left == 1 ? a.target : a.now + after;
}

Vec3 mean_velocity(const ExplicitState& s) {
    Vec3 sum{};
    for (std::size_t k = 0; k < 4 * static_cast<std::size_t>(s.owned); ++k)
        if (k % 4 < 3) sum[k % 4] += s.v[k];
    if (s.ranks) s.ranks->sum(sum);
    return times(1 / static_cast<double>(s.mesh->of_run.size()), sum);
}

// What two nodes may have come closer in the step that was done, m.
double come_closer(const ExplicitState& s) {
    const auto nodes = static_cast<std::int64_t>(s.v.size() / 4);
    const Vec3& drift = s.adaptive.drift;
    double fastest = 0;
#pragma omp parallel for schedule(static) num_threads(s.team) if (s.team > 1) reduction(max : fastest)
    for (std::int64_t n = 0; n < nodes; ++n) {
        const double* v = s.v.data() + 4 * n;
        const double x = v[0] - drift[0], y = v[1] - drift[1], z = v[2] - drift[2];
        fastest = std::max(fastest, x * x + y * y + z * z);
    }
    if (s.ranks) fastest = s.ranks->largest(fastest);
    return 2 * std::sqrt(fastest) * s.before;
}

// Of all processes; the element is of the run.
StableStep stable_step_now(const ExplicitState& s) {
    if (!s.ranks) return s.bound->now(s.x.data(), s.team);
    const std::vector<std::int32_t>& elements = s.piece->elements;
    const auto highest = s.ranks->highest(s.bound->highest(s.x.data(), s.team), elements);
    StableStep here = s.bound->judged(s.x.data(), highest);
    if (here.element >= 0) here.element = elements[here.element];
    return s.ranks->smallest(here);
}

// The stable step of the shapes in force, into `limit` where that is worth a change.
std::string look(const Job& job, ExplicitState& s) {
    AdaptiveStep& a = s.adaptive;
    const StableStep worst = stable_step_now(s);
    a.looked = s.step;
    a.travelled = 0;
    a.drift = mean_velocity(s);
    if (!(worst.step > 0) || !std::isfinite(worst.step)) return {};  // an element that is about to be told
    const double of_elements = 4 / (worst.step * worst.step);
    double allowed = a.share * s.step_factor * 2 / std::sqrt(of_elements + s.added_rate);
    if (s.viscosity) allowed *= viscous_share(s) / s.viscosity->share_at_rest();
    allowed = std::min(allowed, a.share * s.step_limit);
    // the springs of walls and contact are as stiff as the first step let them
    if (s.walls || s.contacts) allowed = std::min(allowed, s.d_time);
    a.height = s.bound->least_size() * std::min(1.0, worst.step / s.bound->undeformed().step);
    if (allowed < a.limit || allowed > worth_raising * a.limit) a.limit = allowed;
    if (a.limit >= least_share * s.d_time) return {};
    return formatted("step %ld: the stable step has fallen from %.3e to %.3e s, with element %d of part %s",
                     s.step, s.d_time, a.limit, worst.element + 1,
                     job.model.parts[job.run.mesh.p_ele_part_id[worst.element]].name.c_str());
}

}  // namespace

bool begin_adaptive(Job& job, ExplicitState& s) {
    const AnalysisControl& control = job.model.control;
    AdaptiveStep& a = s.adaptive;
    a.on = true;
    a.share = control.step_share;
    a.end = control.end_time;
    a.interval = control.output_interval();
    a.limit = a.share * s.stable_step;
    if (!(control.output_time > 0) && a.end > 0)
        remark(job,
               formatted("output_time is not given: %.6e s is taken, a hundredth of end_time", a.interval));
    if (control.output_frequency > 0)
        remark(job,
               "output_frequency counts steps of one length: with d_time auto output_time takes its place");
    const double outputs = a.end > 0 ? std::ceil(a.end / a.interval - rounding) : 0, steps = a.end / a.limit;
    if (!(steps < 9e18) || !(outputs < 2e9))
        return job.fail(RunStatus::bad_input,
                        formatted("%.3e steps and %.3e outputs: too many", steps, outputs));
    s.out_time_num = 1 + static_cast<std::int64_t>(outputs);
    s.d_time = a.limit;
    if (a.end > 0) plan(s, s.d_time);
    find_next(a, s.d_time);
    a.smallest = a.largest = s.d_time;
    remark(job, formatted("d_time auto: the first step is %.6e s, the stable one %.6e s", s.d_time,
                          s.stable_step));
    return true;
}

std::string adapt_step(const Job& job, ExplicitState& s) {
    AdaptiveStep& a = s.adaptive;
    const double done = s.after;
    a.smallest = std::min(a.smallest, done);
    a.largest = std::max(a.largest, done);
    a.now = a.next;
    a.at_output = --a.left == 0;
    a.outputs += a.at_output;
    s.before = done;
    a.travelled += come_closer(s);
    const double limit = a.limit;
    if (a.travelled > closing * a.height || s.step - a.looked >= longest_look)
        if (std::string why = look(job, s); !why.empty()) return why;
    double after = done;
    if (!s.ended() && (a.at_output || a.limit != limit)) plan(s, after);
    set_step(s, done, after);
    find_next(a, after);
    return {};
}

}  // namespace kestralum
