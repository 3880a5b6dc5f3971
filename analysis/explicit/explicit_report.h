// The end of an explicit run: its report and its files.
#pragma once

#include "analysis/explicit/explicit_files.h"
#include "analysis/explicit/explicit_state.h"

namespace kestralum {

// What the run came to, of this process' own nodes where walls were passed deepest.
void tell_end(Job& job, const ExplicitState& state);

// Result file, displacement file and history of the frames in the job's run, which has one at least.
void write_explicit(Job& job, ExplicitState& state, ExplicitFiles& files);

}  // namespace kestralum
