#include "analysis/explicit/explicit_report.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "model/format.h"
#include "results/displacement_file.h"
#include "results/result_file.h"

namespace kestralum {

namespace {

constexpr double largest_drift = 0.01;  // of the largest energy; what is above is noted

double seconds_since(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void fill_report(Job& job, const ExplicitState& s) {
    ExplicitReport& out = job.report().dynamics;
    out.steps = s.step;
    out.time_num = s.time_num;
    out.frames = job.run.mode_num();
    out.d_time = s.adaptive.on ? s.before : s.d_time;
    if (s.adaptive.on && s.step > 0)
        job.note(formatted("d_time auto: %ld steps from %.3e to %.3e s", s.step, s.adaptive.smallest,
                           s.adaptive.largest));
    out.stable_step = s.stable_step;
    out.loop_seconds = s.loop_seconds;
    out.elements = job.run.mesh.element_num();
    out.kernel = s.blocks ? s.blocks->kernel_name() : "";
    out.time = s.time();
    out.energies = s.energies;
    if (s.rubs()) out.friction = s.ranks ? s.friction : s.friction_work.at;
    out.viscous = s.viscosity.has_value();
    if (s.erosion) {
        out.erodes = true;
        const Eroded eroded = s.erosion->total(s.ranks);
        out.eroded_elements = eroded.elements;
        out.eroded_mass_share = eroded.mass_share;
    }
    out.drift = s.largest_drift;
    if (std::abs(out.drift) > largest_drift && !s.diverged)
        job.note(
            formatted("the energy is out of balance by %.1f %%: d_time is too large or the mesh too coarse",
                      100 * std::abs(out.drift)));
    const ExplicitTables& tables = job.model.explicit_tables;
    const auto deepest = [](const DeepestPlace& at, const StepMesh& steps, std::string name) {
        return Penetration{std::move(name), at.depth, steps.of_run[at.node] + 1, at.place, at.time};
    };
    if (s.walls && s.walls->deepest().node >= 0)
        out.deepest_wall = deepest(s.walls->deepest(), s.piece ? s.piece->steps : *s.mesh,
                                   "wall " + tables.walls[s.walls->deepest().of].name);
    if (s.contacts && s.contacts->deepest().node >= 0)
        out.deepest_contact = deepest(s.contacts->deepest(), *s.mesh,
                                      "contact " + tables.contacts[s.contacts->deepest().of].name);
    out.momentum = s.momentum;
    out.angular_momentum = s.angular_momentum;
    job.report().reaction = s.reaction;
    job.report().supports = s.reactions;
}

}  // namespace

void tell_end(Job& job, const ExplicitState& s) {
    job.progress.print("Explicit Analysis Time:  %lf[s]\n", seconds_since(s.start));
    fill_report(job, s);
}

void write_explicit(Job& job, ExplicitState& s, ExplicitFiles& files) {
    report_largest(job, *job.run.results.back());
    RunReport& report = job.report();
    report.kept = true;
    job.clock.begin("write");
    report.written = write_results(job.model, job.run, job.run.mode_num(), Publish::now, job.progress);
    report.dynamics.displacements_written = write_displacements(job.model, job.run, job.progress);
    report.dynamics.history_written = write_history(history_file_name(job.model.model_file_name),
                                                    job.options.log_folder, job.run.history, job.progress);
    const bool whole =
        report.written && report.dynamics.displacements_written && report.dynamics.history_written;
    if (!whole) job.fail_to_write("a result file cannot be written");
    files.end(job, s, whole);
    job.clock.end();
}

}  // namespace kestralum
