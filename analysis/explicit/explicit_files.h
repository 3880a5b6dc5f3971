// What an explicit run has on disk while it goes on: the frames file and, where asked for, the files for
// ParaView. What cannot be written is told once; the run goes on without it.
#pragma once

#include <optional>

#include "analysis/explicit/explicit_state.h"
#include "results/frames_file.h"
#include "results/vtu_file.h"

namespace kestralum {

class ExplicitFiles {
public:
    // After the set-up, with the frames so far. Files that a killed run left are kept under another name.
    void begin(Job& job, const ExplicitState& state);

    // Writes the frames that the run has reached since the last call.
    void add_frames(Job& job, const ExplicitState& state);

    // The run has ended: its result files are written whole, or not.
    void end(Job& job, bool results_written);

private:
    void tell_trouble(Job& job);
    FramesWriter frames_;
    std::optional<VtuFrames> vtu_;
    std::int32_t added_ = 0;
};

}  // namespace kestralum
