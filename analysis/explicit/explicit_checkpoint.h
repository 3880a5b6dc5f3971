// Checkpoints of an explicit run, "log\checkpoint_NAME": its state between two steps, from which --restart
// goes on to the same bytes. What the set-up finds again is not in the file; the frames and their history are
// in the frames file, which it knows.
#pragma once

#include <string>
#include <string_view>

#include "analysis/explicit/explicit_state.h"
#include "results/frames_file.h"

namespace kestralum {

// "log\checkpoint_" and what follows the last separator of the model file's name.
std::string checkpoint_file_name(std::string_view model_file_name);

// Of everything that a run is made from, its state after the set-up included: runs of two models, control
// files or options differ.
std::uint64_t fingerprint(const Job& job, const ExplicitState& state);

struct Checkpoint {
    std::uint64_t fingerprint = 0;
    std::int64_t frames = 0;  // reached so far
    FramesEnd frames_end;     // of the frames file there
};

// Puts the state into the file, which is whole at each moment. What went wrong, empty if nothing.
[[nodiscard]] std::string write_checkpoint(const Job& job, const ExplicitState& state, const Checkpoint& of);

// Takes the state of the file over into one that has been set up; `own` is the fingerprint of that. False
// with the reason in `trouble`, the state then is of no use.
bool read_checkpoint(Job& job, ExplicitState& state, std::uint64_t own, Checkpoint& out,
                     std::string& trouble);

}  // namespace kestralum
