#include "analysis/explicit/explicit_files.h"

#include <cstdio>
#include <filesystem>

#include "analysis/explicit/explicit_setup.h"
#include "model/paths.h"

namespace kestralum {

namespace {

// A file of an earlier run that did not end makes room for that of this one.
void keep_as_old(Job& job, const std::string& stored) {
    const std::string path = paths::to_platform(stored, job.options.log_folder), old = path + ".old";
    std::error_code ignored;
    if (std::filesystem::is_regular_file(path, ignored) && std::rename(path.c_str(), old.c_str()) == 0)
        remark(job, path + " of an earlier run is kept as " + old);
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

void ExplicitFiles::begin(Job& job, const ExplicitState& state) {
    keep_as_old(job, frames_file_name(job.model.model_file_name));
    frames_.begin(job.model, job.run);
    tell_trouble(job);
    if (job.options.vtu_frames) vtu_.emplace(job.model, job.run);
    add_frames(job, state);
}

void ExplicitFiles::add_frames(Job& job, const ExplicitState& state) {
    const std::size_t columns = state.history.columns.size();
    for (; added_ < job.run.mode_num(); ++added_) {
        const Frame& frame = *job.run.results[added_];
        const double* row = state.history.values.data() + std::size_t(added_) * columns;
        if (frames_.is_open()) {
            frames_.add(frame, {row, columns}, added_ + 1);
            tell_trouble(job);
        }
        if (vtu_) add_to_paraview(job, vtu_, frame);
    }
}

void ExplicitFiles::tell_trouble(Job& job) {
    if (frames_.is_open() || frames_.trouble().empty()) return;
    remark(job, frames_.trouble() + ": a run that is killed leaves no further frames");
}

void ExplicitFiles::end(Job& job, bool results_written) {
    job.report().dynamics.vtu_written = vtu_.has_value();
    if (frames_.path().empty()) return;
    frames_.close();
    if (results_written && !job.options.keep_frames)
        std::remove(frames_.path().c_str());
    else if (!results_written)
        remark(job, "the frames are in " + frames_.path() + ": kestralum-batch frames makes files of them");
}

}  // namespace kestralum
