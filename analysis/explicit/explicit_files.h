// What an explicit run has on disk while it goes on: the frames file and, where asked for, checkpoints and
// the files for ParaView. What cannot be written is told once; the run goes on without it.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "analysis/explicit/explicit_checkpoint.h"
#include "analysis/explicit/explicit_state.h"
#include "results/frames_file.h"
#include "results/vtu_file.h"

namespace kestralum {

class ExplicitFiles {
public:
    // After the set-up. With options.restart frames and state of an earlier run take the place of the start;
    // otherwise files that a killed run left are kept under another name. False with the status set.
    bool begin(Job& job, ExplicitState& state);

    // After a step: the frames reached since the last call, and a checkpoint where it is time for one.
    void after_step(Job& job, const ExplicitState& state);

    // The run has ended: its result files are written whole, or not.
    void end(Job& job, const ExplicitState& state, bool results_written);

private:
    bool go_on(Job& job, ExplicitState& state);
    void show_again(Job& job);  // the frames of the earlier run, to ParaView
    void open_store(Job& job, const ExplicitState& state);
    void add_frames(Job& job, const ExplicitState& state);
    void save(Job& job, const ExplicitState& state);
    bool takes_checkpoints(const Job& job) const {
        return job.options.checkpoint_seconds > 0 || job.options.restart;
    }

    FramesWriter frames_;
    std::optional<VtuFrames> vtu_;
    std::int32_t added_ = 0;  // frames that all files have
    bool frames_told_ = false, checkpoint_told_ = false;
    std::uint64_t fingerprint_ = 0;
    std::chrono::steady_clock::time_point saved_{};
};

}  // namespace kestralum
