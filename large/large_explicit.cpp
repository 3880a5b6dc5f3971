#include "large/large_explicit.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <string>
#include <vector>

#include "analysis/explicit/explicit_report.h"
#include "analysis/explicit/explicit_setup.h"
#include "large/explicit_ranks.h"
#include "model/format.h"
#include "results/displacement_file.h"

namespace kestralum {

namespace {

bool set_up(const Team& team, Job& job, ExplicitRanks& ranks, ExplicitState& s) {
    SetUp set_up;
    if (!team.stage(job, [&] { return prepare_explicit(job, set_up, s); })) return false;
    job.clock.begin("partition");
    ranks.deal_out(job.run.mesh);
    if (!team.stage(job, [&] {
            ranks.cut(job, s);
            return make_explicit(job, set_up, s);
        }))
        return false;
    find_first_forces(job, s);
    if (!team.goes_on(job)) return false;
    store_start(job, s);
    return team.goes_on(job);
}

// files: of the gathered frames, where this rank has them.
void run_steps(Job& job, ExplicitState& s, const ExplicitRanks& ranks, ExplicitFiles* files) {
    const auto start = std::chrono::steady_clock::now();
    job.clock.begin("steps");
    while (!s.ended() && !s.diverged && !s.asked_to_stop && ranks.trouble().empty()) {
        explicit_step(job, s);
        if (files) files->after_step(job, s);
        job.progress.set_count(s.step, s.time_num - 1);
        if (s.adaptive.on) job.progress.set_share(s.time() / s.adaptive.end);
    }
    if (!ranks.trouble().empty())
        job.fail(RunStatus::failed, ranks.trouble());
    else if (s.asked_to_stop && !s.diverged)
        job.fail(RunStatus::cancelled,
                 formatted("stopped on request after step %ld of %ld", s.step, s.time_num - 1));
    job.clock.end();
    s.loop_seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// Of all ranks: the deepest, of equal ones the first.
void find_deepest(const Team& team, Job& job, const ExplicitState& s) {
    Penetration& out = job.report().dynamics.deepest_wall;
    std::vector<double> own;
    if (out.node > 0)
        own = {-out.depth,
               out.time,
               static_cast<double>(out.node),
               static_cast<double>(s.walls->deepest().of),
               out.place[0],
               out.place[1],
               out.place[2]};
    const std::size_t width = 7;
    const std::vector<double> all = team.gather_everywhere(own);
    std::span<const double> best;
    for (std::size_t k = 0; k < all.size(); k += width) {
        const auto found = std::span(all).subspan(k, width);
        if (best.empty() || std::ranges::lexicographical_compare(found, best)) best = found;
    }
    if (best.empty()) return;
    out.depth = -best[0];
    out.time = best[1];
    out.node = static_cast<std::int32_t>(best[2]);
    out.name = "wall " + job.model.explicit_tables.walls[static_cast<std::size_t>(best[3])].name;
    out.place = {best[4], best[5], best[6]};
}

// The history, where the frames are on disk in pieces.
void write_rows(Job& job, const std::string& trouble) {
    SilentProgress silent(job.progress);  // what is wrong with the disk has been told
    job.clock.begin("write");
    bool& written = job.report().dynamics.history_written;
    written = write_history(history_file_name(job.model.model_file_name), job.options.log_folder,
                            job.run.history, trouble.empty() ? job.progress : silent);
    if (!written) job.fail_to_write("the history cannot be written");
    job.clock.end();
}

// files: null, where the frames are on disk in pieces.
void finish(const Team& team, Job& job, ExplicitState& s, const ExplicitRanks& ranks, ExplicitFiles* files) {
    tell_end(job, s);
    find_deepest(team, job, s);
    job.report().kept = true;
    if (!files) {
        ranks.find_largest(job);
        job.report().dynamics.frames = job.report().listed_frames;
    }
    if (team.first()) {
        job.run.history.columns = s.history.columns;
        job.run.history.values = s.history.values;
        if (files)
            write_explicit(job, s, *files);
        else
            write_rows(job, ranks.trouble());
    }
    team.agrees(job);
}

}  // namespace

void analyse_explicit_large(const Team& team, Job& job, bool pieces) {
    ExplicitRanks ranks(team, pieces);
    ExplicitState state;
    ExplicitFiles of_gathered, *const files = pieces ? nullptr : &of_gathered;
    state.ranks = &ranks;
    bool begun = set_up(team, job, ranks, state);
    begun = begun && team.stage(job, [&] { return !files || !team.first() || files->begin(job, state); });
    job.clock.end();
    if (begun) {
        run_steps(job, state, ranks, team.first() ? files : nullptr);
        finish(team, job, state, ranks, files);
    }
    if (!begun || !team.first()) job.run.results.clear();
    job.steps = nullptr;
}

}  // namespace kestralum
