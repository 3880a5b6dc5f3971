// What a plane that is chosen when a run has ended carries in one of its frames.
#pragma once

#include <optional>

#include "model/run.h"

namespace kestralum {

struct FrameSection {
    SectionSum sum;      // its `plane` is 0
    bool exact = false;  // from the elements' nodal forces, with loads and held, as --section tells it
};

// Frame from 0; none where it does not exist, has no stresses or lies on disk. Exact in a linear static run
// that was computed here, in every load case. Elsewhere the nodal stresses are integrated over the cut at
// rest (section_of_stresses): as exact as these averages are, loads, held and inertia left 0.
std::optional<FrameSection> frame_section(const Model& model, const Run& run, std::size_t frame,
                                          const SectionPlane& plane);

}  // namespace kestralum
