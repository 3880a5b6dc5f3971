#include "analysis/explicit/explicit_files.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <utility>

#include "analysis/explicit/explicit_setup.h"
#include "analysis/quantity_fields.h"
#include "model/format.h"
#include "model/paths.h"

namespace kestralum {

namespace {

std::string path_of(const Job& job, const std::string& stored) {
    return paths::to_platform(stored, job.options.log_folder);
}

// A file of an earlier run that did not end makes room for that of this one.
void keep_as_old(Job& job, const std::string& stored) {
    const std::string path = path_of(job, stored), old = path + ".old";
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored) && std::rename(path.c_str(), old.c_str()) == 0)
        remark(job, path + " of an earlier run is kept as " + old);
}

// The time alone stays in memory.
void leave_on_disk(std::shared_ptr<const Frame>& frame) {
    Frame light;
    light.n_freq = frame->n_freq;
    frame = std::make_shared<const Frame>(std::move(light));
}

void add_to_paraview(Job& job, std::optional<VtuFrames>& vtu, const Frame& frame) {
    const SilentProgress whole;  // a frame is written whole, whatever is asked meanwhile
    std::string trouble = vtu->add(frame, whole);
    if (trouble.empty()) trouble = vtu->write_list(whole);
    if (trouble.empty()) return;
    job.progress.error("%s", trouble.c_str());
    job.report().dynamics.vtu_failed = true;
    vtu.reset();
}

}  // namespace

bool ExplicitFiles::begin(Job& job, ExplicitState& state) {
    const std::string& name = job.model.model_file_name;
    if (takes_checkpoints(job)) fingerprint_ = fingerprint(job, state);
    if (job.options.vtu_frames)
        vtu_.emplace(job.model, job.run,
                     job.options.vtu_quantities ? quantity_fields(job.model, job.run.mesh) : PointFields{});
    saved_ = std::chrono::steady_clock::now();
    if (job.options.restart) return go_on(job, state);
    keep_as_old(job, frames_file_name(name));
    keep_as_old(job, checkpoint_file_name(name));
    std::remove((path_of(job, checkpoint_file_name(name)) + ".part").c_str());
    job.run.history.columns = state.history.columns;
    frames_.begin(job.model, job.run);
    if (frames_.is_open()) open_store(job, state);
    add_frames(job, state);
    return true;
}

void ExplicitFiles::open_store(Job& job, const ExplicitState& state) {
    if (!job.options.frames_on_disk) return;
    job.run.stored = open_frame_store(job.model.model_file_name, job.run, state.history.columns.size());
}

bool ExplicitFiles::go_on(Job& job, ExplicitState& state) {
    const auto refuse = [&](std::string why) {
        job.run.stored.reset();
        return job.fail(RunStatus::bad_input, std::move(why));
    };
    const std::string file = frames_file_name(job.model.model_file_name);
    Checkpoint saved;
    std::string trouble;
    if (!read_checkpoint(job, state, fingerprint_, saved, trouble)) return refuse(std::move(trouble));
    open_store(job, state);
    FramesReader reader;
    if (!reader.open(file, job.options.log_folder, job.progress)) return refuse(reader.trouble());
    const HistoryRows& rows = reader.head().run.history;
    const bool own = reader.mesh_hash() == mesh_hash(job.run.mesh) && rows.columns == state.history.columns &&
                     reader.head().run.erodes == job.run.erodes;
    Results& results = job.run.results;
    results.clear();
    while (own && reader.frames() < saved.frames) {
        auto frame = reader.next();
        if (!frame) break;
        if (job.run.stored && !results.empty()) leave_on_disk(results.back());
        results.push_back(std::move(frame));
    }
    if (reader.frames() != saved.frames || reader.end() != saved.frames_end)
        return refuse(path_of(job, file) + formatted(": it does not have the %lld frames of the checkpoint",
                                                     static_cast<long long>(saved.frames)));
    state.history.values = rows.values;
    frames_.go_on(job.model.model_file_name, job.run, saved.frames_end);
    if (!frames_.is_open()) return refuse(frames_.trouble());
    added_ = static_cast<std::int32_t>(saved.frames);
    show_again(job);
    job.progress.notice("goes on behind step %ld of %ld with %lld frames", state.step, state.time_num - 1,
                        static_cast<long long>(saved.frames));
    return true;
}

void ExplicitFiles::show_again(Job& job) {
    FramesReader reader;
    const std::string file = frames_file_name(job.model.model_file_name);
    if (!vtu_ || !reader.open(file, job.options.log_folder, job.progress)) return;
    while (vtu_)
        if (const auto frame = reader.next())
            add_to_paraview(job, vtu_, *frame);
        else
            break;
}

void ExplicitFiles::add_frames(Job& job, const ExplicitState& state) {
    const std::size_t columns = state.history.columns.size();
    for (; added_ < job.run.mode_num(); ++added_) {
        const Frame& frame = *job.run.results[added_];
        const double* row = state.history.values.data() + std::size_t(added_) * columns;
        frames_.add(frame, {row, columns}, added_ + 1);
        if (vtu_) add_to_paraview(job, vtu_, frame);
        if (job.run.stored && frames_.is_open() && added_ > 0) leave_on_disk(job.run.results[added_ - 1]);
    }
    if (frames_.trouble().empty() || std::exchange(frames_told_, true)) return;
    remark(job, frames_.trouble() + ": a run that is killed leaves no further frames");
}

void ExplicitFiles::save(Job& job, const ExplicitState& state) {
    frames_.sync();
    saved_ = std::chrono::steady_clock::now();
    if (!frames_.is_open()) return;
    const std::string trouble = write_checkpoint(job, state, {fingerprint_, added_, frames_.end()});
    if (trouble.empty() || std::exchange(checkpoint_told_, true)) return;
    remark(job, trouble);
}

void ExplicitFiles::after_step(Job& job, const ExplicitState& state) {
    add_frames(job, state);
    const double seconds = job.options.checkpoint_seconds;
    if (!(seconds > 0) || state.diverged) return;
    const std::chrono::duration<double> since = std::chrono::steady_clock::now() - saved_;
    if (since.count() >= seconds) save(job, state);
}

void ExplicitFiles::end(Job& job, const ExplicitState& state, bool results_written) {
    job.report().dynamics.vtu_written = vtu_.has_value();
    if (frames_.path().empty()) return;
    const std::string saved = path_of(job, checkpoint_file_name(job.model.model_file_name));
    job.run.stored.reset();
    const bool stopped = takes_checkpoints(job) && frames_.is_open() && !state.diverged &&
                         job.report().status == RunStatus::cancelled;
    if (stopped) {
        save(job, state);
        remark(job, "--restart goes on from " + saved);
    } else if (results_written) {
        for (const char* ending : {"", ".part"}) std::remove((saved + ending).c_str());
        if (!job.options.keep_frames) std::remove(frames_.path().c_str());
    } else {
        remark(job, "the frames are in " + frames_.path() + ": kestralum-batch frames makes files of them");
    }
    frames_.close();
}

}  // namespace kestralum
