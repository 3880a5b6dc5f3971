// Names of bodies and faces in a STEP file (ISO 10303-21), which the CAD library does not hand on.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kestralum {

struct StepBody {
    std::string name;                // of MANIFOLD_SOLID_BREP or BREP_WITH_VOIDS
    std::vector<std::string> faces;  // names of the faces of its shells, in their order
};

// The bodies in the order of the representations' items, as the CAD library numbers bodies and faces. A name
// that all faces of a body share is left out: it tells none from another. Empty where the text is not
// understood.
std::vector<StepBody> read_step_names(std::string_view text);

}  // namespace kestralum
